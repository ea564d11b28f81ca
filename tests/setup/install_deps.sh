#!/usr/bin/env bash
# The install step with every package missing, as root and as a sudo user,
# against stand-in dpkg-query, apt-get, sudo and id that record their calls.
#   install_deps.sh PROJECT_DIR
set -uo pipefail
project=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0
fail() { echo "FAIL: $*"; failed=1; }

stub() { printf '#!/usr/bin/env bash\n%s\n' "$2" >"$work/bin/$1"; chmod +x "$work/bin/$1"; }
printf 'alpha beta # comment\n\ngamma\n' >"$work/pkgs.txt"

# run CASE UID HAVE_SUDO INSTALLED EXIT: runs the install step, leaves the calls in $work/CASE.log
run() {
    rm -rf "$work/bin"; mkdir -p "$work/bin"
    local log="$work/$1.log"; : >"$log"
    stub id "echo $2"
    stub dpkg-query "echo \"dpkg-query \$*\" >>'$log'; [ $4 = yes ] && printf 'install ok installed'"
    stub apt-get "echo \"apt-get DEBIAN_FRONTEND=\${DEBIAN_FRONTEND:-} \$*\" >>'$log'"
    [ "$3" = yes ] && stub sudo "echo \"sudo \$1\" >>'$log'; exec \"\$@\""
    # Only the stand-ins and the basic tools; no real sudo or apt-get.
    mkdir -p "$work/sys"
    for t in bash cat sed tr grep sort tee chmod rm env printf; do ln -sf "$(command -v $t)" "$work/sys"; done
    PATH="$work/bin:$work/sys" QUORVEL_POLICY_RC_D="$work/policy-rc.d" \
        bash "$project/tools/install-deps.sh" "$work/pkgs.txt" >"$work/$1.out" 2>&1
    local rc=$?
    [ "$rc" = "$5" ] || { fail "$1: exit $rc, want $5"; cat "$work/$1.out"; }
    [ ! -e "$work/policy-rc.d" ] || fail "$1: policy-rc.d left behind"
}
expect() { grep -qF -- "$2" "$work/$1.log" || { fail "$1: no call '$2'"; sed 's/^/    /' "$work/$1.log"; }; }

run root 0 no no 0
expect root "update -qq"
expect root "apt-get DEBIAN_FRONTEND=noninteractive install -y -qq --no-install-recommends alpha beta gamma"

run user 1000 yes no 0
expect user "sudo apt-get"
expect user "sudo env"
expect user "apt-get DEBIAN_FRONTEND=noninteractive install -y -qq --no-install-recommends alpha beta gamma"

run nosudo 1000 no no 1
grep -q "need root" "$work/nosudo.out" || fail "nosudo: no clear message"
! grep -q apt-get "$work/nosudo.log" || fail "nosudo: apt-get ran"

run installed 0 no yes 0
! grep -q apt-get "$work/installed.log" || fail "installed: apt-get ran with nothing missing"

# The real lists, as the real apt would install them on a machine that has none of them: the
# simulation reads an empty package status, so every name and every dependency is resolved
# as on a fresh Debian 12 (nothing changes). A name Debian 12 lacks, or a conflict, fails here.
if compgen -G "/var/lib/apt/lists/*_Packages*" >/dev/null; then
    pkgs=$(sed 's/#.*//' "$project"/deps/*.txt | tr -s ' \t' '\n' | grep . | sort -u)
    : >"$work/status"
    apt-get install -s -q --no-install-recommends -o Dir::State::status="$work/status" $pkgs \
        >"$work/sim.out" 2>&1 ||
        { fail "deps/*.txt: apt cannot install them all"; grep -E '^E:' "$work/sim.out"; }
    for p in $pkgs; do
        grep -q "^Inst $p " "$work/sim.out" || fail "deps/*.txt: $p would not be installed"
    done
else
    echo "apt has no package lists here: the names in deps/ are not checked"
fi

[ $failed -eq 0 ] && echo "install step: root, sudo user, no sudo, nothing missing: ok"
exit $failed
