#!/usr/bin/env bash
# exports_test.sh NM LIBRARY LIST: the library exports exactly the names in LIST, except those of the
# sanitizers.
set -euo pipefail
export LC_ALL=C
diff --label expected --label found -u <(grep -v '^#' "$3" | sort) \
  <("$1" -DC --defined-only "$2" | cut -d ' ' -f 3- | grep -v asan | sort)
