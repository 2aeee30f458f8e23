#!/bin/sh
# Compares the exported symbols with the map. Exactly six have C linkage. The library must not need an exception type of
# jsoncpp, because a jsoncpp built without exceptions has none. usage: exports_test.sh LIBRARY MAP NM
needed=$("$3" -DC --undefined-only "$1" | grep -o 'Json::.*')
printf 'Needed of jsoncpp:\n%s\n' "$needed"
case $needed in '' | *Json::Exception* | *Json::LogicError* | *Json::RuntimeError*) exit 1 ;; esac

listed=$(sed -n '/global:/,/local:/s/^ *\([A-Za-z_][A-Za-z_0-9]*\)\*\{0,1\};$/\1/p' "$2" | sort)
exported=$("$3" -DC --defined-only "$1" | sed 's/^[0-9a-f]* . //; s/(.*//' | sort -u)
with_c_linkage=$("$3" -D --defined-only "$1" | sed -n '/ _Z/d; s/^[0-9a-f]* [TWti] //p' | sort | xargs)
printf 'Listed:\n%s\nExported:\n%s\nWith C linkage: %s\n' "$listed" "$exported" "$with_c_linkage"
[ -n "$listed" ] && [ "$listed" = "$exported" ] && [ "$with_c_linkage" = "_orvd_svc_ready \
_orvd_svc_register _orvd_svc_register_auth orvd_log_marker orvd_svc_deinit orvd_svc_init" ]
