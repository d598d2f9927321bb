#!/usr/bin/env bash
# Looks in the built programs for what cmake/CompilerOptions.cmake hardens them with.
#
#   check-hardening.sh BUILD            the programs of a build folder without sanitizers
#   check-hardening.sh --self-test      prove that each rule can fail, and that a hardened program passes
#
# One thing is not asked for: the note that lets the processor enforce the landing pads of -fcf-protection (IBT, SHSTK).
# The linker writes it only when every object has it, and Debian 12's crt1.o has none; its C library would not switch the
# enforcement on either. The pads themselves are asked for.
set -euo pipefail

# shellcheck disable=SC2030,SC2031  # the self-test reads what is said, not how often
problems=0
problem() {
    echo "$1: $2"
    problems=$((problems + 1))
}

check_program() { # FILE
    local program=$1 headers dynamic symbols pads
    [ -f "$program" ] || { problem "$program" "is not there"; return; }
    headers=$(readelf --wide --file-header --program-headers "$program")
    dynamic=$(readelf --wide --dynamic "$program")
    symbols=$(readelf --wide --dyn-syms "$program")

    # A shared library is of type DYN, too; only a program names an interpreter.
    if ! grep -q 'Type: *DYN' <<<"$headers" || ! grep -q ' INTERP ' <<<"$headers"; then
        problem "$program" "is not a position-independent program"
    fi
    grep -q ' GNU_RELRO ' <<<"$headers" || problem "$program" "has no read-only relocations"
    grep -qE '\((FLAGS|BIND_NOW)\).*BIND_NOW|\(BIND_NOW\)|\(FLAGS_1\).*NOW' <<<"$dynamic" || problem "$program" "binds lazily"
    grep -qE ' GNU_STACK .* RW +0x' <<<"$headers" || problem "$program" "has an executable stack"
    grep -qE ' LOAD .* RWE ' <<<"$headers" && problem "$program" "has memory that can be written and executed"
    grep -q '(TEXTREL)' <<<"$dynamic" && problem "$program" "has relocations in its code"
    grep -qE '\((RPATH|RUNPATH)\)' <<<"$dynamic" && problem "$program" "looks for libraries in a folder of its own"
    grep -q ' __stack_chk_fail' <<<"$symbols" || problem "$program" "has no stack protector"
    # A call that the compiler proves to be within bounds stays as it is, so that a program may have few or no checked ones.
    # What must not be: one of these without its check, as a build without fortification has them.
    if grep -qE ' (sprintf|vsprintf|fprintf|vfprintf|printf|vprintf)@' <<<"$symbols"; then
        problem "$program" "calls functions that are not fortified"
    fi
    if [ "$(uname -m)" = x86_64 ]; then
        # Of the functions that other objects can call, all begin with a landing pad.
        pads=$(awk '
            NR == FNR { if ($2 ~ /[TW]/ && $3 !~ /\.(cold|part)/ && $3 !~ /^(_start|_init|_fini|_dl_relocate_static_pie)$/) wanted[$3] = 1; next }
            /^[0-9a-f]+ <.*>:$/ { name = $2; gsub(/^<|>:$/, "", name); first = (name in wanted); next }
            first && NF { total++; if (/endbr64/) padded++; first = 0 }
            END { print padded + 0, total + 0 }' <(nm --defined-only "$program") <(objdump --disassemble --no-show-raw-insn --section=.text "$program"))
        if [ "${pads#* }" -lt 1 ] || [ "${pads% *}" -lt "${pads#* }" ]; then
            problem "$program" "has landing pads at ${pads% *} of ${pads#* } functions"
        fi
    fi
}

if [ "${1:-}" = --self-test ]; then
    folder=$(mktemp -d)
    trap 'rm -rf "$folder"' EXIT
    cat >"$folder/program.cpp" <<'END'
#include <cstdio>
#include <cstring>
void copy(const char* from) { char to[64]; std::strcpy(to, from); std::printf("%s %p\n", to, to); }
int main(int count, char** words) { copy(words[count - 1]); }
END
    hardened=(-O2 -Wno-all -fPIE -pie -fstack-protector-strong -fcf-protection=full -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3
        "-Wl,-z,relro,-z,now,-z,noexecstack")
    failures=0
    expect() { # SAYS OPTION…: with the options the check says that; nothing when it is empty
        local says=$1 answer
        shift
        "${CXX:-c++}" "$folder/program.cpp" -o "$folder/program" "${hardened[@]}" "$@"
        answer=$(check_program "$folder/program")
        if [ -z "$says" ] && [ -n "$answer" ] || [[ "$answer" != *"$says"* ]]; then
            echo "expected \"$says\" with $*, got \"$answer\""
            failures=$((failures + 1))
        fi
    }
    expect ""
    expect "is not a position-independent program" -fno-pie -no-pie
    expect "has no read-only relocations" -Wl,-z,norelro
    expect "binds lazily" -Wl,-z,lazy
    expect "has an executable stack" -Wl,-z,execstack
    expect "looks for libraries" -Wl,-rpath,/nowhere
    expect "has no stack protector" -fno-stack-protector
    expect "not fortified" -U_FORTIFY_SOURCE
    [ "$(uname -m)" != x86_64 ] || expect "has landing pads at" -fcf-protection=none
    [ "$failures" = 0 ] && echo "hardening: every rule can fail"
    exit $((failures > 0))
fi

build=${1:?usage: check-hardening.sh BUILD | --self-test}
programs=("$build"/Vellumline/vellumline{,-guardian} "$build"/VellumlineService/vellumline-{service,correct})
for program in "${programs[@]}"; do
    check_program "$program"
done
# Probes of large stack frames leave no mark that every program must have; the commands that built them tell.
if [ -f "$build/compile_commands.json" ] && [ "$(uname -m)" = x86_64 ] &&
    grep '"command":' "$build/compile_commands.json" | grep -qv -- '-fstack-clash-protection'; then
    problem "$build/compile_commands.json" "compiles without -fstack-clash-protection"
fi
[ "$problems" = 0 ] || { echo "hardening: $problems problems"; exit 1; }
echo "hardening: ${#programs[@]} programs as they should be"
