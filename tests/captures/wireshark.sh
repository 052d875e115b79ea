#!/usr/bin/env bash
# Has tshark read captures with our dissector, and compares what it says with what 'authchip decode' says: the register of
# every message, its name, status and attempt. Then breaks the captures at random, always the same way: the dissector must
# not stumble. Without tshark it ends with status 77.
# Usage: tests/captures/wireshark.sh BUILD_FOLDER CAPTURE...
set -euo pipefail
case ${1:-} in --help) sed -n '2,5s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -ge 2 ] || { echo "usage: tests/captures/wireshark.sh BUILD_FOLDER CAPTURE..." >&2; exit 2; }
command -v tshark >/dev/null || { echo "skipped: tshark is not installed"; exit 77; }
export PATH="$(cd "$1" && pwd)/tool:$PATH" LC_ALL=C
shift
dissector=$(cd "$(dirname "$0")/../../capture/wireshark" && pwd)/authchip.lua
HOME=$(mktemp -d) # neither the user's settings nor an installed dissector
export HOME
trap 'rm -r "$HOME"' EXIT

# dissect CAPTURE ARGUMENT...
dissect() { tshark -X lua_script:"$dissector" -r "$@" 2>"$HOME/errors"; }

# One line a message that is about a register: capture, number, register, status, attempt if it failed, what is named.
# All captures at once, because tshark takes long to start; an interface stands for each.
as_tshark_says() {
    mergecap -a -I none -F pcapng -w "$HOME/all.pcapng" "$@"
    dissect "$HOME/all.pcapng" -T fields -E separator='|' -e frame.interface_id -e frame.number -e authchip.register \
        -e authchip.status -e authchip.attempt -e _ws.col.Info |
        perl -F'\|' -lane '
            BEGIN { @captures = splice @ARGV }
            my $number = $F[1] - ($before[$F[0]] //= $F[1] - 1);
            next if $F[2] eq "";
            my $named = $F[5] =~ /^name (.*)/ ? $1 : "";
            print join("|", $captures[$F[0]], $number, hex($F[2]), $F[3] eq "" ? "" : hex($F[3]), $F[4], $named)' "$@"
}
as_decode_says() {
    for capture in "$@"; do
        { authchip decode --json "$capture" 2>/dev/null || true; } | perl -MJSON::PP -0777 -se '
            for my $m (@{decode_json(<STDIN>)->{messages}}) {
                next unless defined $m->{register};
                my $status = $m->{read} && $m->{register} == 0x10 && $m->{result} == 1 ? hex($m->{data}) : "";
                my $attempt = $m->{result} < 0 ? $m->{attempt} : "";
                my $named = $m->{result} >= 0 && $m->{text} =~ /^name register 0x\w\w, (.*)/ ? $1 : "";
                print join("|", $capture, $m->{number}, $m->{register}, $status, $attempt, $named), "\n";
            }' -- -capture="$capture"
    done
}

as_decode_says "$@" >"$HOME/expected"
as_tshark_says "$@" >"$HOME/actual"
diff -u "$HOME/expected" "$HOME/actual" || { echo "tshark says something else" >&2; exit 1; }
grep -vi "running as user" "$HOME/errors" | grep . && { echo "tshark complains" >&2; exit 1; }
[ -s "$HOME/expected" ]

# A filter, as people use it.
[ "$(dissect "$1" -Y 'authchip.register == 0x00 && i2c.addr' | wc -l)" -gt 0 ]

for seed in $(seq 20); do
    perl -0777 -pe '
        BEGIN { srand(shift) }
        for my $change (1 .. 20) { substr($_, 200 + int(rand(length($_) - 200)), 1) = chr(int(rand(256))) }' \
        "$seed" "$1" >"$HOME/broken.pcapng"
    dissect "$HOME/broken.pcapng" -V >"$HOME/output" || true
    ! grep -i "lua error" "$HOME/output" "$HOME/errors" || { echo "the dissector stumbles over seed $seed" >&2; exit 1; }
done
