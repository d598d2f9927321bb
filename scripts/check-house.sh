#!/usr/bin/env bash
# Checks the tracked text of the tree for what must not be in it: paths of a developer's machine, hosts of package
# registries, references to planning papers that a reader of the repository does not have, conflict markers.
#
#   check-house.sh [--self-test]
set -euo pipefail
root=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)
cd "$root"

# Each pattern is written so that it does not match itself here.
rules=(
    "a reference to a planning paper|\\b([Ss]pec(ification)?\\.m[d]|[Tt]he [s]pec\\b|[Pp]latform-fact[s]|[Dd]esign\\.m[d])|\\b[P]arts? [0-9]+\\.[0-9]+"
    "a path of a developer's machine|(^|[^A-Za-z0-9_.~}\$-])/(wor[k]|roo[t]|hom[e]/[a-z]+)(/|\\b)|(^|[^A-Za-z0-9_.}/-])/tm[p]/[A-Za-z]"
    "a package registry host|registry\\.npmj[s]|pypi\\.or[g]|crates\\.i[o]|deb\\.debian\\.or[g]|proxy\\.golan[g]|archive\\.ubunt[u]"
    "a conflict marker|^(<{7}|>{7}) "
)

violations=0
check_text() { # FILE…
    local rule found
    for rule in "${rules[@]}"; do
        found=$(grep -nHIE -- "${rule#*|}" "$@" || true)
        if [ -n "$found" ]; then
            # shellcheck disable=SC2001  # a backreference
            sed "s/^\([^:]*:[0-9]*\):/\1: ${rule%%|*}:/" <<<"$found"
            violations=$((violations + $(wc -l <<<"$found")))
        fi
    done
}

if [ "${1:-}" = --self-test ]; then
    planted=$(mktemp)
    trap 'rm -f "$planted"' EXIT
    failures=0
    for line in "as spec"".md says" "see Part"" 3.1" "in the ""spec it is" "/wo""rk/main/x" "cd /ro""ot" "/tm""p/lab/x" \
        "https://py""pi.org/simple" "<<<<""<<< HEAD"; do
        echo "$line" >"$planted"
        violations=0
        check_text "$planted" >/dev/null
        if [ "$violations" = 0 ]; then
            echo "not found: $line"
            failures=$((failures + 1))
        fi
    done
    for line in "a network/root" "\${TMPDIR:-/tm""p}/x" "special parts" "Content-Type of part 3"; do
        echo "$line" >"$planted"
        violations=0
        check_text "$planted"
        if [ "$violations" != 0 ]; then
            failures=$((failures + 1))
        fi
    done
    [ "$failures" = 0 ] && echo "house: every rule can fail"
    exit $((failures > 0))
fi

if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
    mapfile -t files < <(git ls-files)
else
    mapfile -t files < <(find . -type f -not -path './build*' -not -path './.git/*' | cut -c3-)
fi
existing=()
for file in "${files[@]}"; do
    [ -f "$file" ] && existing+=("$file")
done
check_text "${existing[@]}"
if [ "$violations" != 0 ]; then
    echo "house: $violations violations"
    exit 1
fi
echo "house: no violations in ${#existing[@]} files"
