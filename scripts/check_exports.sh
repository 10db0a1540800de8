#!/usr/bin/env bash
# Fails when libvarn_wifihal.so exports anything beyond its documented
# interface: implementation classes, anonymous-namespace helpers, standard
# library instantiations, or anything of the host stand-ins.
set -u
lib=${1:?usage: check_exports.sh path/to/libvarn_wifihal.so}
symbols=$(nm -D --defined-only --demangle "$lib" | cut -d' ' -f3-)
echo "$symbols" | sed 's/^/exported: /'
bad=$(echo "$symbols" | grep -E 'Impl\b|Impl::|\(anonymous namespace\)|(^|[^a-z_])std::|varn_sim|varn_test' |
      grep -v -E '^(typeinfo|typeinfo name|vtable) for vel_loc_fw::[A-Za-z]+$' || true)
# A few classes are implemented in the library but derived from by users
# (`VARNClientListener` comes from the client library): allow their RTTI.
if [ -n "$bad" ]; then
    echo "not part of the interface:"
    echo "$bad"
    exit 1
fi
for required in varn_wifihal_get_cb_table varn_wifihal_init varn_wifihal_destroy \
        'vel_loc_fw::log_error(' 'vel_loc_fw::ConfigFile::createInstance('; do
    if ! echo "$symbols" | grep -qF "$required"; then
        echo "missing from the exports: $required"
        exit 1
    fi
done
echo "exports OK: $(echo "$symbols" | wc -l) symbols"
