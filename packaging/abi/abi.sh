#!/usr/bin/env bash
# Compares the binary interface of the library in BUILD_FOLDER with the record in this folder.
# --update writes the record instead. usage: packaging/abi/abi.sh BUILD_FOLDER [--update]
set -euo pipefail
here=$(dirname "$0")
include=$here/../../include
build=$1 option=${2:-}

# Writes the exported symbols of a library and the types of the public headers, as abidw finds them. Paths and line
# numbers are left out, because they differ between machines.
write_abi() {
  abidw --suppressions "$build/public_types.ini" --exported-interfaces-only --drop-undefined-syms --no-corpus-path \
    --no-comp-dir-path --short-locs --no-show-locs --no-parameter-names --no-elf-needed --no-write-default-sizes \
    --type-id-style hash "$1"
}

compare_abi() {
  local recorded=$1 built=$2 report
  if ! report=$(abidiff --no-added-syms "$recorded" "$built"); then
    echo "$report"
    echo "Programs built against $recorded would break. Keep the interface, or raise the major version."
    return 1
  fi
  if ! report=$(abidiff "$recorded" "$built"); then
    echo "$report"
    echo "Programs built against $recorded still work. Run './dev abi --update' to record what was added."
    return 1
  fi
  echo "Programs built against $recorded still work."
}

headers=$(cd "$include" && echo *.h | sed 's/ /, /g')
printf '[suppress_type]\n  source_location_not_in = %s\n  drop = yes\n' "$headers" >"$build/public_types.ini"
write_abi "$build/src/liborvex2_0.so" >"$build/library.xml"
write_abi "$build/packaging/abi/liborvex_args_abi.so" >"$build/holders.xml"
result=0
for name in library holders; do
  if [ "$option" = --update ]; then
    cp "$build/$name.xml" "$here/$name.xml"
  else
    compare_abi "$here/$name.xml" "$build/$name.xml" || result=1
  fi
done
exit "$result"
