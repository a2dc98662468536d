/* rkimgv64.h: the interface of librkimgv64.so, the image viewer library.
 *
 * A host shows the images and text files of an archive through the viewer family:
 *   callback_init, open_viewer, add_item (once per item), show_viewer, then the error getters if a
 *   call failed, then close_viewer. callback_init must come again before every show_viewer.
 * The image utility family resizes and rotates image files without a window:
 *   open_image_utility, resize_* / rotate_image, close_image_utility.
 *
 * All text is UTF-16 (char16_t), zero-terminated. Booleans are 8-bit: 0 is false, anything else is
 * true; results are 0 or 1. No call lets an exception out: a failure is stored in the record, the
 * call returns false, and the getters read it until the next call that resets it. Every call runs
 * on the caller's thread and blocks it; calls on one record must not overlap.
 *
 * Usable from C11 and C++. RkImageViewerCallback is a C++ class: a C host does not call
 * callback_init and keeps the library's default callbacks.
 */
#ifndef RKIMGV64_H
#define RKIMGV64_H

#include <stdint.h>
#ifndef __cplusplus
#include <uchar.h>
#endif

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define RKIMGV64_API __attribute__((visibility("default")))
#else
#define RKIMGV64_API
#endif

typedef uint8_t rk_bool8;
typedef uint64_t rk_hwnd; /* a native window id of the host, 0 for none */
typedef struct RkViewerRecord RkViewerRecord;

#ifdef __cplusplus
class RkImageViewerCallback;
#else
typedef struct RkImageViewerCallback RkImageViewerCallback;
#endif

/* ---- viewer family ---------------------------------------------------------------------------- */

/* Opens a viewer record on an archive and an existing temporary folder. False if out is null or
 * memory runs out (then *out is untouched); otherwise *out is always set, and false means the
 * error is stored in it: 87 for a null tempFolder, 16005 for a missing archive (or a folder) or a
 * temporary folder that is missing or a file. cryptoMode 0 keeps the default, 1 selects mode 1
 * and any other value mode 2. A failed record must not be passed to close_viewer: read the error,
 * then abandon it or free it with close_image_utility, which frees a record without a collection. */
RKIMGV64_API rk_bool8 open_viewer(const char16_t* archivePath, const char16_t* tempFolder, rk_bool8 correctNames,
                                  rk_bool8 readOnly, rk_bool8 resizeDisabled, uint32_t cryptoMode,
                                  RkViewerRecord** out);

/* Adds one archive entry to show, after those added before; nothing is extracted yet. folder may
 * be null (the archive's root). False for a null record; a null or empty name stores 87, a record
 * without collection 16007. */
RKIMGV64_API rk_bool8 add_item(RkViewerRecord* record, const char16_t* folder, const char16_t* name,
                               uint64_t itemKey, rk_bool8 encrypted, rk_bool8 startHere);

/* Shows the viewer and returns when the user closes it. passwordBuffer (in and out, may be null)
 * receives the password in use at the end when passwordBufferChars is at least 1. False with a
 * stored error when the viewer could not run. */
RKIMGV64_API rk_bool8 show_viewer(RkViewerRecord* record, rk_hwnd parent, rk_bool8 startSlideShow,
                                  rk_bool8 saveOption, rk_bool8 askPassword, char16_t* passwordBuffer,
                                  uint32_t passwordBufferChars);

/* Removes every file the viewer extracted (encrypted ones through the RkWipe64 program beside the
 * host executable, when present), the emptied temporary folder, and frees the record. False for a
 * null record or a failure on the way, which leaves the record allocated. A record whose
 * open_viewer failed ends the process (status 999): hosts must not pass one. */
RKIMGV64_API rk_bool8 close_viewer(RkViewerRecord* record);

/* Sets the host's callback object for the next show_viewer; the library does not own it. False,
 * keeping the previous one, for a null pointer. */
RKIMGV64_API rk_bool8 callback_init(RkImageViewerCallback* callback);

/* ---- error getters (either kind of record) ---------------------------------------------------- */

/* The last failure's code: viewer codes are above 16000, smaller ones are system error numbers.
 * 99999 for a null record. */
RKIMGV64_API uint32_t get_error_code(RkViewerRecord* record);
/* The last failure's severity on the viewer's own scale; 2 for a null record. */
RKIMGV64_API uint32_t get_severity_code(RkViewerRecord* record);
/* The source line that raised the last failure; 0 for a null record. */
RKIMGV64_API uint32_t get_line_number(RkViewerRecord* record);
/* Copies the description (without a trailing line end) into buffer, zeroing it first. False for a
 * null record or buffer, a zero size, or a text that does not fit. */
RKIMGV64_API rk_bool8 get_error_description(RkViewerRecord* record, char16_t* buffer, uint32_t bufferChars);
/* Copies the raising module's source path, as get_error_description does. */
RKIMGV64_API rk_bool8 get_error_module(RkViewerRecord* record, char16_t* buffer, uint32_t bufferChars);

/* ---- image utility family --------------------------------------------------------------------- */

/* Opens an image utility record; false if out is null or memory runs out. */
RKIMGV64_API rk_bool8 open_image_utility(RkViewerRecord** out);
/* Frees an image utility record; false for a null record. */
RKIMGV64_API rk_bool8 close_image_utility(RkViewerRecord* record);
/* Resizes source into destination to fit width by height, shrinking only. *flagOut tells whether a
 * file was written. True also when nothing needed doing; false with a stored error on failure. */
RKIMGV64_API rk_bool8 resize_image(RkViewerRecord* record, const char16_t* source, const char16_t* destination,
                                   uint32_t width, uint32_t height, rk_bool8* flagOut);
/* As resize_image, with a folder that receives intermediate files to be wiped (may be null). */
RKIMGV64_API rk_bool8 resize_imageex(RkViewerRecord* record, const char16_t* source,
                                     const char16_t* destination, uint32_t width, uint32_t height,
                                     rk_bool8* flagOut, const char16_t* wipeFolder);
/* As resize_imageex, choosing whether images may be enlarged and whether they may be shrunk. */
RKIMGV64_API rk_bool8 resize_imageex2(RkViewerRecord* record, const char16_t* source,
                                      const char16_t* destination, uint32_t width, uint32_t height,
                                      rk_bool8 enlarge, rk_bool8 shrink, rk_bool8* flagOut,
                                      const char16_t* wipeFolder);
/* As resize_image without a record: a failure's code goes to *errorCodeOut and its text to
 * errorTextOut, which must hold the whole text (1024 characters always suffice). */
RKIMGV64_API rk_bool8 resize_imageex3(const char16_t* source, const char16_t* destination, uint32_t width,
                                      uint32_t height, rk_bool8* flagOut, uint32_t* errorCodeOut,
                                      char16_t* errorTextOut);
/* Rotates an image file: direction true turns clockwise (mode 1), false counter-clockwise
 * (mode 2), by angle degrees. False with a stored error on failure. */
RKIMGV64_API rk_bool8 rotate_image(RkViewerRecord* record, const char16_t* source, const char16_t* destination,
                                   rk_bool8 direction, uint32_t angle);

#ifdef __cplusplus
} /* extern "C" */

/* The host's table of callbacks. Derive from it and pass the object to callback_init; the order of
 * the virtual functions is the contract (slot 0 is the destructor). Every function but askSecurity,
 * getPassword, setPassword and onArchiveFile is called on the thread of show_viewer; those four may
 * come from an extraction worker and must be safe there. */
class RkImageViewerCallback {
 public:
  virtual ~RkImageViewerCallback() {}
  /* A save-as produced an item (removed false) or the user deleted one (removed true). */
  virtual rk_bool8 onItemChanged(const char16_t* fullPath, rk_bool8 hasFolder, rk_bool8 removed,
                                 rk_bool8 encrypted, const char16_t* folderAndArchiveName,
                                 const char16_t* folderAndName) = 0;
  /* Whether a name typed in the save-as dialog is acceptable. */
  virtual rk_bool8 isValidName(const char16_t* name) = 0;
  /* Whether an item of that name exists already. */
  virtual rk_bool8 itemExists(const char16_t* name) = 0;
  /* Shows the host's help for the viewer. */
  virtual rk_bool8 showHelp(rk_hwnd window, uint32_t context, uint32_t topic) = 0;
  /* Forwarded security question of the archive. */
  virtual uint32_t askSecurity(uint32_t a, uint32_t b, uint32_t c, uint32_t zero) = 0;
  /* The user asked to share the shown file. */
  virtual uint32_t shareItem(rk_hwnd window, const char16_t* fullPath) = 0;
  /* True when buffer (bufferChars long) now holds the password to use for the archive. */
  virtual rk_bool8 getPassword(const char16_t* archiveName, char16_t* buffer, uint32_t bufferChars) = 0;
  /* The user gave a password at a prompt; the host may remember it. */
  virtual void setPassword(const char16_t* archiveName, uint32_t zero, const char16_t* password) = 0;
  /* A file name reported by the archive layer. */
  virtual void onArchiveFile(const char16_t* fileName) = 0;
  /* The viewer's window at the start of the run, 0 at its end. */
  virtual void setViewerWindow(rk_hwnd window) = 0;
};
#endif

#endif /* RKIMGV64_H */
