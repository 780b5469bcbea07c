#!/bin/bash
# The reference that an installation brings: a manual page for the library and for each function, and the same as HTML.
# And one version everywhere.
#   reference_test.sh MEDIA_ADAPTER MEDIA_ADAPTER_SIM
# shellcheck source=tests/support/devices.sh
. "$(dirname "$0")/../support/devices.sh" "$2" "$1" || exit 1
build=${tool[0]%/*}

cmake --install "$build" --prefix "$work/prefix" >installed || fail "$(cat installed)"
pages=$(find prefix -name man3)
for name in media_adapter $(grep -oE 'API_\w+\(' "$source_folder/api/media_adapter.h" | tr -d '(' | sort -u); do
  page=$pages/$name.3
  man --warnings -l "$page" 2>&1 >"$name.txt" | grep . && fail "$page: troff complains"
  lexgrog "$page" >/dev/null || fail "$page has no name that apropos finds"
  [ "$(grep -c '^[A-Z]' "$name.txt")" -ge 6 ] || fail "$page lacks sections"
  ! grep -E '/\*\*|^ +\* ' "$name.txt" >marks || [ "$name" = media_adapter ] || fail "$page: $(cat marks)"
  grep -rqF ">$name" prefix/share/doc/*/html || [ "$name" = media_adapter ] || fail "no $name in the HTML"
done
[ "$(find "$pages" -type f | wc -l)" = 16 ] || fail "other pages than those of the functions: $(ls "$pages")"
version=$(sed -n 's/^Version: //p' prefix/lib*/pkgconfig/media-adapter.pc prefix/lib*/*/pkgconfig/media-adapter.pc 2>/dev/null)
for name in media-adapter media-adapter-sim; do
  [ "$("prefix/bin/$name" --version)" = "$name $version" ] || fail "$name --version: $("prefix/bin/$name" --version)"
done
# What is said at the end of the header's comments arrives.
expect_text API_RFADelete.txt "nothing is rolled back"
expect_text media_adapter.txt "Local paths are the host's own"
[ ! -e failures ]
