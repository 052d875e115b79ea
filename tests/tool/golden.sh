#!/usr/bin/env bash
# Runs the command of each golden file and compares output, errors and exit status with what the file says.
# Usage: tests/tool/golden.sh [--update] BUILD_FOLDER CASE...
#   --update  writes what came into the files instead; look at the difference before it is committed
#
# A file is golden/CASE.txt: the command behind "$ ", then the sections "--- output", "--- errors" and "--- status".
# What differs from run to run is replaced: challenges and signatures by their length, source lines by LINE, times by
# TIME, the numbers of semaphores and processes by NUMBER, their names by NAME. Each case has a folder for temporary
# files, and so a lock, of its own. A case that only root can do ends with status 77 for others.
set -euo pipefail

source "$(dirname "$0")/../support/goldenfiles"
cd "$(dirname "$0")"
export PATH="$build/tests/kernel:$PATH"
export build scratch # commands may put files there
chmod 755 "$scratch"

normalised() {
    perl -0777 -pe '
        sub lengthOf { my $digits = join("", split(/\s+/, shift)); "<" . length($digits) / 2 . " bytes>" }
        s/^((?:challenge|signature) +)([0-9a-f]+(?:\n +[0-9a-f]+)*)$/$1 . lengthOf($2)/gme;
        s/("(?:challenge|signature)":")([0-9a-f]+)"/$1 . lengthOf($2) . q(")/ge;
        s/(\.cpp:)\d+/$1LINE/g;
        s/^((?:chip|certificate|signature) +ok: .*\()\d+\.\d ms/$1TIME/gm;
        s/(a byte takes )\d+\.\d ms, as at \d+ kHz/$1TIME, as at SPEED/g;
        # What depends on the machine or the container, unless the case is about it.
        unless ($ENV{command} =~ /--bus-hz/) {
            s/^certificate +note: the bus is slow.*\n(?: +.*\n)*//gm;
            s/,\{"check":"certificate","cause":null,"found":"the bus is slow[^}]*\}//g;
        }
        unless ($ENV{command} =~ /in_a_container/) {
            s/^lock +note: this process has semaphores of its own.*\n(?: +.*\n)*//gm;
            s/,\{"check":"lock","cause":null,"found":"this process has semaphores of its own[^}]*\}//g;
        }
        unless ($ENV{command} =~ /beside_a_seed/) {
            s/^lock +note: .* is a seeded lock of another folder.*\n(?: +.*\n)*//gm;
            s/,\{"check":"lock","cause":null,"found":"[^"]*is a seeded lock of another folder[^}]*\}//g;
        }
        unless ($ENV{command} =~ /--busy-refusals/) { # how often a chip refuses that is busy for a time differs, too
            s/^(signature +ok: .*, )\d+ retr(?:y|ies)/$1COUNT retries/gm;
            s/("check":"signature",[^}]*"retries":)\d+/$1COUNT/g;
        }
        s/(since attempt )\d+/$1NUMBER/g;
        s/^(authchip: .*)$/(my $line = $1) =~ s{\b\d+\.\d ms\b}{TIME}g; $line/gme;
        s/(Ms":)\d+\.\d+/$1TIME/g;
        s/^ERROR: ld\.so: object .*: ignored\.\n//gm; # the machine has a shell of another architecture
        s/\Q$ENV{scratch}\E/SCRATCH/g;
        s/\b((?:semaphore +|[Ss]emaphore |ipcrm -s |semaphore":))\d+\b/$1NUMBER/g; # the first of a system has the number 0
        s/\b(last user +|[Pp]rocess |lastUser":)[1-9]\d*\b/$1NUMBER/g;
        s/\bNUMBER \([\w-]+([,)])/NUMBER (NAME$1/g;
        s/\b(kill -(?:CONT|KILL) )\d+/$1NUMBER/g;
        s/\b0x51[0-9a-f]{6}\b/KEY/g;
        s/^(owner +)[\w-]+,/$1USER,/gm;
        s/\b(until )\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ/$1DATE/g;
        s/(this board\x27s clock says )\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ/$1DATE/g;
        s/("owner":)"[\w-]+"/$1"USER"/g;
        s/[\w-]+ (has put it there)/USER $1/g;
        s/; systemd removes it when [\w-]+ logs out, unless it has RemoveIPC=no//g; # a seed by another user than root
    ' "$1"
}

# For the commands. The lock's semaphore, as the system numbers it.
lock_number() { authchip lock status --json | sed -n 's/.*"semaphore":\([0-9]*\).*/\1/p'; }
# Where the library keeps the lock's key file.
key_file() { echo "$TMPDIR/qipc_systemsem_Wexfordmallowb528dc6704516c18d022877c1c01ebd38f99a27b"; }
# Sets the tokens of the lock, as a process that has ended since.
set_tokens() { perl -e 'semctl($ARGV[0], 0, 16, $ARGV[1]) or die' "$(lock_number)" "$(($1))"; }
# Runs a command while another process, of the same TMPDIR or another, is inside the lock; under authchip-sim.
while_held() { while_held_in "$TMPDIR" "$@"; }
while_held_in() {
    local folder=$1 result=0
    shift
    mkfifo "$TMPDIR/held"
    TMPDIR=$folder holder /dev/i2c-7 0x2a >"$TMPDIR/held" &
    read -r _ <"$TMPDIR/held"
    [ -z "${stopping:-}" ] || stop_process $!
    "$@" || result=$?
    { kill -KILL $! && wait $!; } 2>/dev/null || true # nothing about it on standard error
    [ "$folder" = "$TMPDIR" ] || TMPDIR=$folder remove_lock
    return $result
}
stop_process() {
    kill -STOP "$1"
    until grep -q '^State:.T' "/proc/$1/status"; do sleep 0.05; done
}
# The same with a process that was stopped there, as by Ctrl-Z.
while_stopped() { stopping=yes while_held "$@"; }
# Makes an issuer (issuer.pem), and a chip's key and certificate of that issuer (chip.key, chip.pem) in $TMPDIR.
make_pki() {
    {
        openssl req -x509 -newkey rsa:2048 -nodes -days 365 -subj "/CN=Test issuer" -keyout "$TMPDIR/issuer.key" \
            -out "$TMPDIR/issuer.pem"
        openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj "/CN=Test chip" \
            -keyout "$TMPDIR/chip.key" -out "$TMPDIR/chip.csr"
        openssl x509 -req -in "$TMPDIR/chip.csr" -CA "$TMPDIR/issuer.pem" -CAkey "$TMPDIR/issuer.key" -days 365 \
            -set_serial 0x01f3 -out "$TMPDIR/chip.pem" \
            -extfile <(printf '%s = none\n' subjectKeyIdentifier authorityKeyIdentifier) # which newer versions add
    } 2>"$TMPDIR/openssl.log"
}
# The same, and an issuer of the same name with another key (renewed.pem). Each certificate tells its issuer's key.
make_renewed_pki() {
    make_pki
    {
        openssl x509 -req -in "$TMPDIR/chip.csr" -CA "$TMPDIR/issuer.pem" -CAkey "$TMPDIR/issuer.key" -days 365 \
            -set_serial 0x01f3 -out "$TMPDIR/chip.pem" -extfile <(echo "authorityKeyIdentifier = keyid:always")
        openssl req -x509 -newkey rsa:2048 -nodes -days 365 -subj "/CN=Test issuer" -keyout "$TMPDIR/renewed.key" \
            -out "$TMPDIR/renewed.pem"
    } 2>"$TMPDIR/openssl.log"
}
# Lets a simulated chip with them answer a challenge, and runs 'authchip verify' with that answer, without a chip.
verify_recorded() { # OPTION...
    local challenge signature
    challenge=$(printf '%064d' 7)
    export challenge
    authchip-sim --key "$TMPDIR/chip.key" --certificate "$TMPDIR/chip.pem" -- bash -c '
        authchip -d /dev/i2c-7 -a 0x2a certificate -o "$TMPDIR/chip.der"
        authchip -d /dev/i2c-7 -a 0x2a sign --challenge "$challenge" -o "$TMPDIR/signature"' >"$TMPDIR/told"
    signature=$(od -An -v -tx1 "$TMPDIR/signature" | tr -d ' \n')
    authchip verify --certificate "$TMPDIR/chip.der" --challenge "$challenge" --signature "$signature" "$@"
}
# Makes the list of what the issuer has revoked (issuer.crl): the chip's certificate.
revoke() {
    printf '[ca]\ndefault_ca=list\n[list]\ndatabase=%s/index\ndefault_md=sha256\ndefault_crl_days=30\n' "$TMPDIR" \
        >"$TMPDIR/ca.conf"
    printf 'R\t491231235959Z\t250101000000Z\t01F3\tunknown\t/CN=Test chip\n' >"$TMPDIR/index"
    openssl ca -config "$TMPDIR/ca.conf" -gencrl -cert "$TMPDIR/issuer.pem" -keyfile "$TMPDIR/issuer.key" \
        -out "$TMPDIR/issuer.crl" 2>>"$TMPDIR/openssl.log"
}
# In a container, not even root removes another user's; but it can become that user.
remove_lock() {
    local number
    number=$(lock_number)
    [ -z "$number" ] || ipcrm -s "$number" 2>/dev/null || nobody ipcrm -s "$number"
}
nobody() { setpriv --reuid=65534 --regid=65534 --clear-groups "$@"; }
# Another user's authchip; the folder of this build may be closed to others.
as_nobody() {
    cp "$(command -v authchip)" "$build"/tool/libauthchip-*.so "$TMPDIR"
    nobody "$TMPDIR/authchip" "$@"
}
# The same, where it can start no thread.
as_nobody_without_threads() {
    cp "$(command -v authchip)" "$build"/tool/libauthchip-*.so "$TMPDIR"
    nobody bash -c 'ulimit -u 1; exec "$0" "$@"' "$TMPDIR/authchip" "$@"
}
# Authchip in a container that another user has started, and where that user is called root.
as_root_of_a_container() {
    cp "$(command -v authchip)" "$build"/tool/libauthchip-*.so "$TMPDIR"
    nobody unshare --user --map-root-user "$TMPDIR/authchip" "$@"
}
# Where root may open only the files that are open to it.
as_root_without_rights() { setpriv --bounding-set=-dac_override,-dac_read_search "$@"; }
# Where nothing is mounted on /proc.
without_proc() { unshare --mount sh -c 'mount -t tmpfs none /proc && exec "$@"' sh "$@"; }
# Where $TMPDIR/disk is a disk of 4096 bytes.
with_a_tiny_disk() {
    mkdir "$TMPDIR/disk"
    unshare --mount sh -c 'mount -t tmpfs -o size=4096 none "$TMPDIR/disk" && exec "$@"' sh "$@"
}
# Where $TMPDIR/disk takes no file; $1 are the options with which it is mounted.
with_a_disk_of() {
    local options=$1
    shift
    mkdir "$TMPDIR/disk"
    unshare --mount sh -c 'options=$1; shift; mount -t tmpfs -o "$options" none "$TMPDIR/disk" && exec "$@"' sh "$options" "$@"
}
# Where the system's semaphores are others than those of whoever has made the lock.
in_a_container() { unshare --ipc "$@"; }
# Another user's authchip, where users see only their own processes; in a name space for processes of its own, since an
# older kernel hides them everywhere in it.
as_nobody_without_others() { # without the simulated bus, which Debian 13's umockdev opens to its owner only
    cp "$(command -v authchip)" "$build"/tool/libauthchip-*.so "$TMPDIR"
    unshare --mount sh -c 'mount -t proc -o hidepid=2 none /proc && exec "$@"' sh \
        env --unset=LD_PRELOAD setpriv --reuid=65534 --regid=65534 --clear-groups "$TMPDIR/authchip" "$@"
}
# Where the processes outside are not visible.
where_others_are_invisible() { unshare --pid --fork --mount-proc "$@"; }
# Where $TMPDIR is what systemd gives to a service with PrivateTmp=.
in_a_private_tmp() {
    mkdir -p "$TMPDIR/systemd-private-1-test.service-2/tmp" "$TMPDIR/tmp"
    unshare --mount sh -c '
        mount --bind "$TMPDIR/systemd-private-1-test.service-2/tmp" "$TMPDIR/tmp" && TMPDIR=$TMPDIR/tmp exec "$@"' sh "$@"
}
# Seeds the lock, and runs a command that looks for it in another folder.
beside_a_seed() {
    authchip lock seed --group 0 >/dev/null
    mkdir "$TMPDIR/other"
    TMPDIR=$TMPDIR/other "$@"
}
# Where the system gives no semaphore more.
without_semaphores() {
    unshare --ipc sh -c 'echo 32000 1024000000 500 0 >/proc/sys/kernel/sem && exec "$@"' sh "$@"
}
# Presses Ctrl-C once the command says that it waits.
interrupted_when_it_waits() {
    : >"$TMPDIR/told"
    env --default-signal=INT "$@" 2>"$TMPDIR/told" &
    until grep -q waiting "$TMPDIR/told"; do sleep 0.05; done
    kill -INT $!
    local result=0
    wait $! || result=$?
    cat "$TMPDIR/told" >&2
    return $result
}
export -f make_pki make_renewed_pki lock_number remove_lock key_file set_tokens while_held while_held_in while_stopped stop_process nobody as_nobody without_proc
export -f with_a_tiny_disk with_a_disk_of in_a_container beside_a_seed without_semaphores interrupted_when_it_waits
export -f verify_recorded revoke in_a_private_tmp
export -f as_nobody_without_others as_nobody_without_threads where_others_are_invisible as_root_of_a_container as_root_without_rights

# Neither a container without the right nor a folder mounted with "nodev" lets a node be opened.
makes_nodes() {
    mknod "$scratch/node" c 89 250 2>/dev/null || return 1
    local answer
    answer=$(cat "$scratch/node" 2>&1) || true
    rm "$scratch/node"
    [[ $answer == *"No such device or address"* ]]
}

status=0
for name in "$@"; do
    file=golden/$name.txt
    command=$(sed -n '1s/^\$ //p' "$file")
    export command
    case $command in
        *as_nobody*) nobody true 2>/dev/null || { echo "$name: skipped, only root becomes another user"; exit 77; } ;;
    esac
    case $command in
        *without_semaphores*) without_semaphores true 2>/dev/null ||
            { echo "$name: skipped, only root takes the semaphores away"; exit 77; } ;;
    esac
    case $command in
        *with_a_tiny_disk* | *with_a_disk_of* | *in_a_private_tmp*)
            unshare --mount true 2>/dev/null || { echo "$name: skipped, only root mounts a disk"; exit 77; } ;;
    esac
    case $command in
        *in_a_container* | *beside_a_seed*)
            unshare --ipc true 2>/dev/null || { echo "$name: skipped, only root has semaphores of its own"; exit 77; } ;;
    esac
    case $command in
        *as_root_of_a_container*) nobody unshare --user --map-root-user true 2>/dev/null ||
            { echo "$name: skipped, no user can be called root here"; exit 77; } ;;
        *as_root_without_rights*) as_root_without_rights true 2>/dev/null ||
            { echo "$name: skipped, only root gives rights up"; exit 77; } ;;
    esac
    case $command in
        *as_nobody_without_others*) where_others_are_invisible unshare --mount mount -t proc -o hidepid=2 none /proc 2>/dev/null ||
            { echo "$name: skipped, only root mounts /proc"; exit 77; } ;;
    esac
    case $command in
        *where_others_are_invisible*) where_others_are_invisible true 2>/dev/null ||
            { echo "$name: skipped, only root hides processes"; exit 77; } ;;
    esac
    case $command in
        *without_proc*) without_proc true 2>/dev/null || { echo "$name: skipped, only root hides /proc"; exit 77; } ;;
    esac
    case $command in
        *mknod*) makes_nodes || { echo "$name: skipped, no node can be made and opened here"; exit 77; } ;;
    esac
    export TMPDIR=$scratch/tmp
    mkdir "$TMPDIR"
    result=0
    # The folder's path may have a blank. Without a separator of words no line has to quote it.
    bash -c "IFS=; $command" >"$scratch/output" 2>"$scratch/errors" </dev/null || result=$?
    # Those that have lost their key file, too; what it refuses, the next line removes.
    [[ $command != *"lock seed"* ]] || authchip lock remove >"$scratch/removal" 2>&1 || true
    remove_lock
    rm -r "$TMPDIR"
    {
        printf '$ %s\n--- output\n' "$command"
        normalised "$scratch/output"
        echo "--- errors"
        normalised "$scratch/errors"
        printf -- '--- status\n%d\n' "$result"
    } >"$scratch/actual"
    if $update; then
        cp "$scratch/actual" "$file"
    else
        diff -u "$file" "$scratch/actual" || status=1
    fi
done
exit $status
