#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The library defines exactly the names of its version script, without a version, and those are the functions that the
# header declares.
# Usage: check_exports.sh LIBRARY VERSION_SCRIPT HEADER
set -eu

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

nm -D --defined-only "$1" | awk '{ print $3 }' | sort > "$work/defined"
sed -n 's/^ *\(tdm_[a-z]*\);$/\1/p' "$2" | sort > "$work/listed"
sed -n 's/^uint32_t \(tdm_[a-z]*\)(.*/\1/p' "$3" | sort > "$work/declared"

[ -s "$work/declared" ]
diff "$work/declared" "$work/listed"
diff "$work/listed" "$work/defined"
