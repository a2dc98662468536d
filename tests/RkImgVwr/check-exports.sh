#!/bin/sh
# The library's dynamic symbol table holds exactly the seventeen exports.
set -eu
expected="add_item callback_init close_image_utility close_viewer get_error_code get_error_description
get_error_module get_line_number get_severity_code open_image_utility open_viewer resize_image resize_imageex
resize_imageex2 resize_imageex3 rotate_image show_viewer"
actual=$(nm -D --defined-only "$1" | awk '{print $3}' | sort | tr '\n' ' ')
want=$(echo $expected | tr ' ' '\n' | sort | tr '\n' ' ')
if [ "$actual" != "$want" ]; then
  echo "exports differ:"; echo " got:  $actual"; echo " want: $want"; exit 1
fi
echo "17 exports, nothing else"
