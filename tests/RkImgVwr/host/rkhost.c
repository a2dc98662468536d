/* A host written in C11 that loads the viewer library with dlopen and drives the exports through
 * their failure handling and edge cases, as an archive tool would. Usage: rkhost LIBRARY
 * Prints one line per failed check and "N passed, N failed"; exit status 1 on any failure. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include "rkimgv64.h"

typedef rk_bool8 (*open_viewer_fn)(const char16_t*, const char16_t*, rk_bool8, rk_bool8, rk_bool8, uint32_t,
                                   RkViewerRecord**);
typedef rk_bool8 (*add_item_fn)(RkViewerRecord*, const char16_t*, const char16_t*, uint64_t, rk_bool8, rk_bool8);
typedef rk_bool8 (*show_viewer_fn)(RkViewerRecord*, rk_hwnd, rk_bool8, rk_bool8, rk_bool8, char16_t*, uint32_t);
typedef rk_bool8 (*record_fn)(RkViewerRecord*);
typedef rk_bool8 (*open_utility_fn)(RkViewerRecord**);
typedef uint32_t (*getter_fn)(RkViewerRecord*);
typedef rk_bool8 (*text_getter_fn)(RkViewerRecord*, char16_t*, uint32_t);
typedef rk_bool8 (*callback_init_fn)(void*);
typedef rk_bool8 (*resize_image_fn)(RkViewerRecord*, const char16_t*, const char16_t*, uint32_t, uint32_t,
                                    rk_bool8*);
typedef rk_bool8 (*resize_imageex_fn)(RkViewerRecord*, const char16_t*, const char16_t*, uint32_t, uint32_t,
                                      rk_bool8*, const char16_t*);
typedef rk_bool8 (*resize_imageex2_fn)(RkViewerRecord*, const char16_t*, const char16_t*, uint32_t, uint32_t,
                                       rk_bool8, rk_bool8, rk_bool8*, const char16_t*);
typedef rk_bool8 (*resize_imageex3_fn)(const char16_t*, const char16_t*, uint32_t, uint32_t, rk_bool8*,
                                       uint32_t*, char16_t*);
typedef rk_bool8 (*rotate_image_fn)(RkViewerRecord*, const char16_t*, const char16_t*, rk_bool8, uint32_t);

static struct {
  open_viewer_fn open_viewer;
  add_item_fn add_item;
  show_viewer_fn show_viewer;
  record_fn close_viewer;
  callback_init_fn callback_init;
  getter_fn get_error_code, get_severity_code, get_line_number;
  text_getter_fn get_error_description, get_error_module;
  open_utility_fn open_image_utility;
  record_fn close_image_utility;
  resize_image_fn resize_image;
  resize_imageex_fn resize_imageex;
  resize_imageex2_fn resize_imageex2;
  resize_imageex3_fn resize_imageex3;
  rotate_image_fn rotate_image;
} rk;

static int passed, failed;

#define CHECK(cond)                                                  \
  do {                                                               \
    if (cond) {                                                      \
      ++passed;                                                      \
    } else {                                                         \
      ++failed;                                                      \
      printf("%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
    }                                                                \
  } while (0)

/* UTF-8 (ASCII here) to a static UTF-16 buffer; two rotating buffers serve one call's arguments. */
static const char16_t* W(const char* s) {
  static char16_t buffers[4][4096];
  static int next;
  char16_t* out = buffers[next++ % 4];
  size_t i = 0;
  for (; s[i] && i < 4095; ++i) out[i] = (char16_t)(unsigned char)s[i];
  out[i] = 0;
  return out;
}

static size_t Len16(const char16_t* s) {
  size_t n = 0;
  while (s[n]) ++n;
  return n;
}

static int AllZero(const char16_t* buffer, size_t n) {
  for (size_t i = 0; i < n; ++i)
    if (buffer[i] != 0) return 0;
  return 1;
}

static void* Need(void* library, const char* name) {
  void* f = dlsym(library, name);
  if (!f) {
    printf("missing export %s\n", name);
    exit(1);
  }
  return f;
}

static void TouchFile(const char* path) {
  FILE* f = fopen(path, "wb");
  if (f) {
    fputs("x", f);
    fclose(f);
  }
}

static int Exists(const char* path) {
  struct stat st;
  return lstat(path, &st) == 0;
}

/* The folder for scratch files: $TMPDIR, else the system's default. */
static const char* TempRoot(void) {
  const char* tmp = getenv("TMPDIR");
  return tmp && *tmp ? tmp : P_tmpdir;
}

/* A record whose open_viewer failed on a null temporary folder, so that it has no collection. */
static RkViewerRecord* FailedViewer(const char* archive) {
  RkViewerRecord* record = NULL;
  CHECK(!rk.open_viewer(W(archive), NULL, 0, 0, 0, 0, &record));
  CHECK(record != NULL);
  return record;
}

static void NullRecordGetters(void) {
  char16_t buffer[16];
  CHECK(rk.get_error_code(NULL) == 99999);
  CHECK(rk.get_severity_code(NULL) == 2);
  CHECK(rk.get_line_number(NULL) == 0);
  CHECK(!rk.get_error_description(NULL, buffer, 16));
  CHECK(!rk.get_error_module(NULL, buffer, 16));
  CHECK(!rk.add_item(NULL, W("a"), W("b.jpg"), 1, 0, 0));
  CHECK(!rk.show_viewer(NULL, 0, 0, 0, 0, NULL, 0));
  CHECK(!rk.close_viewer(NULL));
  CHECK(!rk.close_image_utility(NULL));
  CHECK(!rk.rotate_image(NULL, W("a"), W("b"), 1, 90));
  rk_bool8 flag = 7;
  CHECK(!rk.resize_image(NULL, W("a"), W("b"), 10, 10, &flag));
  CHECK(flag == 0);
  CHECK(!rk.callback_init(NULL));
  CHECK(!rk.open_viewer(W("x"), W("y"), 0, 0, 0, 0, NULL));
  CHECK(!rk.open_image_utility(NULL));
}

static void OpenViewerFailures(const char* archive, const char* folder) {
  RkViewerRecord* record = NULL;
  /* A null temporary folder: *out is set, 87 with severity 2. */
  CHECK(!rk.open_viewer(W(archive), NULL, 0, 0, 0, 0, &record));
  CHECK(record != NULL);
  CHECK(rk.get_error_code(record) == 87);
  CHECK(rk.get_severity_code(record) == 2);
  /* The system text comes without the line end that system messages carry. */
  char16_t text[256];
  CHECK(rk.get_error_description(record, text, 256));
  size_t length = Len16(text);
  CHECK(length > 0 && text[length - 1] != '\n' && text[length - 1] != '\r');
  /* The module names the raising source file; a buffer one short of it gives false, zeroed. */
  char16_t module[512];
  CHECK(rk.get_error_module(record, module, 512));
  size_t moduleLength = Len16(module);
  CHECK(moduleLength > 0);
  for (size_t i = 0; i < 512; ++i) module[i] = 'Z';
  CHECK(!rk.get_error_module(record, module, (uint32_t)moduleLength));
  CHECK(AllZero(module, moduleLength));
  CHECK(module[moduleLength] == 'Z');
  CHECK(rk.get_error_module(record, module, (uint32_t)moduleLength + 1) && Len16(module) == moduleLength);

  /* Such a record has no collection: add_item and show_viewer say so with 16007, severity 1. */
  CHECK(!rk.add_item(record, NULL, W("a.jpg"), 1, 0, 0));
  CHECK(rk.get_error_code(record) == 16007);
  CHECK(rk.get_severity_code(record) == 1);
  CHECK(rk.close_image_utility(record));
  record = FailedViewer(archive);
  CHECK(!rk.show_viewer(record, 0, 0, 0, 0, NULL, 0));
  CHECK(rk.get_error_code(record) == 16007 && rk.get_severity_code(record) == 1);
  /* close_viewer would end the process; a record without collection is freed this way. */
  CHECK(rk.close_image_utility(record));

  /* Fresh records, whose stored text still ends in the line end: the trim comes before the
   * bounds test, so the trimmed length and its terminator are enough, and one less is not. */
  record = FailedViewer(archive);
  for (size_t i = 0; i < 256; ++i) text[i] = 'Z';
  CHECK(rk.get_error_description(record, text, (uint32_t)length + 1));
  CHECK(Len16(text) == length && text[length] == 0 && text[length + 1] == 'Z');
  CHECK(rk.close_image_utility(record));
  record = FailedViewer(archive);
  for (size_t i = 0; i < 256; ++i) text[i] = 'Z';
  CHECK(!rk.get_error_description(record, text, (uint32_t)length));
  CHECK(AllZero(text, length) && text[length] == 'Z');
  CHECK(rk.close_image_utility(record));

  /* A null archive path and an empty temporary folder are wrong paths: 16005, severity 2. */
  record = NULL;
  CHECK(!rk.open_viewer(NULL, W(folder), 0, 0, 0, 0, &record));
  CHECK(record && rk.get_error_code(record) == 16005 && rk.get_severity_code(record) == 2);
  CHECK(rk.close_image_utility(record));
  record = NULL;
  CHECK(!rk.open_viewer(W(archive), W(""), 0, 0, 0, 0, &record));
  CHECK(record && rk.get_error_code(record) == 16005 && rk.get_severity_code(record) == 2);
  CHECK(rk.close_image_utility(record));

  record = NULL;
  CHECK(!rk.open_viewer(W(folder), W(folder), 0, 0, 0, 0, &record));  /* archive is a folder */
  CHECK(record && rk.get_error_code(record) == 16005 && rk.get_severity_code(record) == 2);
  CHECK(rk.get_line_number(record) > 0);
  CHECK(rk.get_error_module(record, text, 256) && Len16(text) > 0);
  CHECK(rk.close_image_utility(record));

  record = NULL;
  CHECK(!rk.open_viewer(W("/nonexistent/archive.zip"), W(folder), 0, 0, 0, 0, &record));
  CHECK(record && rk.get_error_code(record) == 2 && rk.get_severity_code(record) == 5);
  CHECK(rk.close_image_utility(record));

  record = NULL;
  CHECK(!rk.open_viewer(W(archive), W(archive), 0, 0, 0, 0, &record));  /* temp folder is a file */
  CHECK(record && rk.get_error_code(record) == 16005);
  CHECK(rk.close_image_utility(record));
}

static void ViewerRun(const char* archive, const char* folder) {
  char path[4200];
  RkViewerRecord* record = NULL;
  CHECK(rk.open_viewer(W(archive), W(folder), 1, 0, 0, 7, &record));
  CHECK(record != NULL && rk.get_error_code(record) == 0);

  CHECK(rk.add_item(record, NULL, W("one.JPG"), 1, 0, 0)); /* null folder is the root */
  CHECK(rk.add_item(record, W("sub"), W("two.txt"), 2, 1, 1));
  CHECK(!rk.add_item(record, W("sub"), NULL, 3, 0, 0));
  CHECK(rk.get_error_code(record) == 87 && rk.get_severity_code(record) == 2);
  CHECK(!rk.add_item(record, W("sub"), W(""), 3, 0, 0));
  CHECK(rk.get_error_code(record) == 87);
  /* The next working call resets the stored error. */
  CHECK(rk.add_item(record, W(""), W("README"), 4, 0, 0));
  CHECK(rk.get_error_code(record) == 0 && rk.get_severity_code(record) == 0 && rk.get_line_number(record) == 0);
  char16_t text[64];
  CHECK(rk.get_error_description(record, text, 64) && text[0] == 0);

  /* An item that climbs out of the temporary folder is refused. */
  CHECK(!rk.add_item(record, W(".."), W("escape.jpg"), 5, 0, 0));
  CHECK(rk.get_error_code(record) == 87);

  /* The window does not exist yet: show_viewer fails honestly. */
  char16_t password[8] = {'k', 'e', 'e', 'p', 0};
  CHECK(!rk.show_viewer(record, 0, 0, 0, 0, password, 8));
  CHECK(rk.get_error_code(record) == 16003 && rk.get_severity_code(record) == 5);
  CHECK(password[0] == 'k');

  /* A description longer than the buffer: false and a zeroed buffer. */
  char16_t tiny[4] = {1, 1, 1, 1};
  CHECK(!rk.get_error_description(record, tiny, 4));
  CHECK(AllZero(tiny, 4));
  CHECK(!rk.get_error_description(record, tiny, 0));

  snprintf(path, sizeof path, "%s/sub", folder);
  mkdir(path, 0700);
  CHECK(rk.close_viewer(record));
  /* Nothing was extracted, so nothing of the host's is touched; the empty folder goes. */
  CHECK(!Exists(folder));
}

static void ImageUtility(const char* folder) {
  char source[4200], destination[4200];
  snprintf(source, sizeof source, "%s/a.jpg", folder);
  snprintf(destination, sizeof destination, "%s/b.jpg", folder);
  RkViewerRecord* record = NULL;
  CHECK(rk.open_image_utility(&record));
  CHECK(record != NULL && rk.get_error_code(record) == 0);
  rk_bool8 flag = 9;
  CHECK(!rk.resize_image(record, W(source), W(destination), 100, 100, &flag));
  CHECK(flag == 0 && rk.get_error_code(record) == 16205 && rk.get_severity_code(record) == 8);
  flag = 9;
  CHECK(!rk.resize_imageex(record, W(source), W(destination), 100, 100, &flag, NULL));
  CHECK(flag == 0 && rk.get_error_code(record) == 16205);
  CHECK(!rk.resize_imageex2(record, W(source), W(destination), 100, 100, 1, 1, &flag, W(folder)));
  CHECK(!rk.rotate_image(record, W(source), W(destination), 1, 90));
  CHECK(rk.get_error_code(record) == 16205);
  /* An image utility record has no collection either. */
  CHECK(!rk.add_item(record, NULL, W("a.jpg"), 1, 0, 0));
  CHECK(rk.get_error_code(record) == 16007 && rk.get_severity_code(record) == 1);
  uint32_t code = 0;
  char16_t text[1024];
  text[0] = 1;
  CHECK(!rk.resize_imageex3(W(source), W(destination), 10, 10, &flag, &code, text));
  CHECK(code == 16205 && Len16(text) > 0);
  CHECK(!rk.resize_imageex3(W(source), W(destination), 10, 10, NULL, NULL, NULL));
  CHECK(rk.close_image_utility(record));
}

/* close_viewer on the record of a failed open_viewer is the one assertion of the interface: the
 * process prints the FATAL line and ends with status 999. It runs in a child, whose standard
 * output comes back through a pipe. */
static void CloseOfAFailedRecordEndsTheProcess(const char* archive) {
  int fds[2];
  if (pipe(fds) != 0) {
    CHECK(!"pipe");
    return;
  }
  fflush(stdout);
  pid_t pid = fork();
  if (pid < 0) {
    CHECK(!"fork");
    close(fds[0]);
    close(fds[1]);
    return;
  }
  if (pid == 0) {
    alarm(30); /* a hang fails the check below instead of stopping the run */
    close(fds[0]);
    if (dup2(fds[1], STDOUT_FILENO) < 0) _exit(1);
    close(fds[1]);
    RkViewerRecord* record = NULL;
    if (rk.open_viewer(W(archive), NULL, 0, 0, 0, 0, &record) || !record) _exit(1);
    rk.close_viewer(record);
    _exit(0); /* the assertion did not fire */
  }
  close(fds[1]);
  char output[8192];
  size_t got = 0;
  for (;;) {
    ssize_t n = read(fds[0], output + got, sizeof output - 1 - got);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    got += (size_t)n;
    if (got == sizeof output - 1) break;
  }
  output[got] = 0;
  close(fds[0]);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  CHECK(WIFEXITED(status) && WEXITSTATUS(status) == (999 & 0xFF));
  CHECK(strstr(output, "FATAL ERROR: assert failure in Module: ") != NULL);
  CHECK(strstr(output, " Line number: ") != NULL);
}

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: rkhost LIBRARY\n");
    return 2;
  }
  void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (!library) {
    printf("cannot load %s: %s\n", argv[1], dlerror());
    return 1;
  }
  rk.open_viewer = (open_viewer_fn)Need(library, "open_viewer");
  rk.add_item = (add_item_fn)Need(library, "add_item");
  rk.show_viewer = (show_viewer_fn)Need(library, "show_viewer");
  rk.close_viewer = (record_fn)Need(library, "close_viewer");
  rk.callback_init = (callback_init_fn)Need(library, "callback_init");
  rk.get_error_code = (getter_fn)Need(library, "get_error_code");
  rk.get_severity_code = (getter_fn)Need(library, "get_severity_code");
  rk.get_line_number = (getter_fn)Need(library, "get_line_number");
  rk.get_error_description = (text_getter_fn)Need(library, "get_error_description");
  rk.get_error_module = (text_getter_fn)Need(library, "get_error_module");
  rk.open_image_utility = (open_utility_fn)Need(library, "open_image_utility");
  rk.close_image_utility = (record_fn)Need(library, "close_image_utility");
  rk.resize_image = (resize_image_fn)Need(library, "resize_image");
  rk.resize_imageex = (resize_imageex_fn)Need(library, "resize_imageex");
  rk.resize_imageex2 = (resize_imageex2_fn)Need(library, "resize_imageex2");
  rk.resize_imageex3 = (resize_imageex3_fn)Need(library, "resize_imageex3");
  rk.rotate_image = (rotate_image_fn)Need(library, "rotate_image");

  char folder[4096];
  snprintf(folder, sizeof folder, "%s/rkhost-XXXXXX", TempRoot());
  if (!mkdtemp(folder)) {
    printf("cannot make a folder under %s\n", TempRoot());
    return 1;
  }
  char archive[4200];
  snprintf(archive, sizeof archive, "%s.zip", folder);
  TouchFile(archive);

  NullRecordGetters();
  OpenViewerFailures(archive, folder);
  CloseOfAFailedRecordEndsTheProcess(archive);
  ImageUtility(folder);
  ViewerRun(archive, folder);

  unlink(archive);
  rmdir(folder);
  printf("%d passed, %d failed\n", passed, failed);
  return failed == 0 ? 0 : 1;
}
