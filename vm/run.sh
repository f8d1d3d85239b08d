#!/bin/sh
# Runs veyra in a QEMU VM with a Wi-Fi access point, real clients and a real
# DHCP/DNS server: builds the modules, prepares the guest kernel (downloaded
# into a cache folder, never installed) and the initramfs, boots once, runs the
# guest scenarios in that boot, streams the serial console with timestamps and
# collects everything into the results folder.
#
# usage: vm/run.sh [--demo] [--out DIR] [--no-build] [SCENARIO...]
#   SCENARIO     a guest script's name, looked up in vm/guest/, tests/vm/guest/
#                and bench/vm/ (default: the checks, every tests/vm/guest/t[0-9]*.sh)
#   --demo       run the demo scenario instead (results in build/vm-demo)
#   --out DIR    results folder (default build/vm-results)
#   --no-build   use the modules already in build/module
#   --build DIR  the build folder holding module/ (default build)
# Environment:
#   KVER                 kernel release the guest boots (default: scripts/kver.sh)
#   VY_SLOW              multiplies every guest wait and the VM time limit (default 1)
#   VM_TIMEOUT           seconds before the VM is stopped (default 1800)
#   VM_MEM, VM_SMP       guest memory in MiB (default 1024) and CPUs (default 2)
#   VM_ICOUNT            the guest's clock counts instructions (QEMU -icount
#                        shift=VM_ICOUNT: one instruction is 2^shift ns), so that
#                        guest time no longer depends on the host's speed or load;
#                        one vCPU unless VM_SMP says otherwise (a second one
#                        never comes up under the counter)
#   QEMU_EXTRA           more QEMU options
# Exit status: 0 when every check passed, 1 when one failed or the run did not finish.
set -eu
. "$(dirname "$0")/env.sh"

mode=check out= build=1 scenarios= BUILD_DIR=$SRC_ROOT/build
while [ $# -gt 0 ]; do
	case "$1" in
	--demo) mode=demo ;;
	--out) out=$2; shift ;;
	--no-build) build= ;;
	--build) BUILD_DIR=$2; shift ;;
	-h|--help) sed -n '2,/^# Exit status/p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
	-*) echo "run.sh: unknown option $1" >&2; exit 2 ;;
	*) scenarios="$scenarios $1" ;;
	esac
	shift
done

mkdir -p "$BUILD_DIR"
BUILD_DIR=$(cd "$BUILD_DIR" && pwd)
if [ "$mode" = demo ]; then
	out=${out:-$BUILD_DIR/vm-demo}
	scenarios=demo
else
	out=${out:-$BUILD_DIR/vm-results}
	if [ -z "$scenarios" ]; then
		for f in "$SRC_ROOT"/tests/vm/guest/t[0-9]*.sh; do scenarios="$scenarios $(basename "$f" .sh)"; done
	fi
fi
# The plan names each guest script by its path.
paths=
for s in $scenarios; do
	p=
	for d in "$VM_DIR/guest" "$SRC_ROOT/tests/vm/guest" "$SRC_ROOT/bench/vm"; do
		[ -f "$d/$s.sh" ] && { p=$d/$s.sh; break; }
	done
	[ -n "$p" ] || { echo "run.sh: no guest script $s.sh" >&2; exit 2; }
	paths="$paths $p"
done

VM_T0=$(date +%s.%N)
note() { echo "[host $(vm_elapsed)] $*"; }

"$SRC_ROOT/scripts/vm-deps.sh"
vm_kver
tree=$("$VM_DIR/kernel-cache.sh")

if [ -n "$build" ]; then
	note "building the modules for $KVER"
	make -s -C "$SRC_ROOT" module KVER="$KVER"
fi
moddir=$BUILD_DIR/module
for m in veyra umac; do
	# Without a build the guest still runs (its checks of the modules fail).
	[ -f "$moddir/$m.ko" ] || { echo "run.sh: $moddir/$m.ko is missing (make module)" >&2; [ -z "$build" ] || exit 1; }
done

initrd=$BUILD_DIR/vm/initramfs-$KVER.cpio.gz
if [ ! -f "$initrd" ] || [ "$VM_DIR/init" -nt "$initrd" ] || [ "$VM_DIR/mkinitramfs.sh" -nt "$initrd" ]; then
	note "building the initramfs"
	"$VM_DIR/mkinitramfs.sh" "$tree" "$initrd"
fi

rm -rf "$out"
mkdir -p "$out"
out=$(cd "$out" && pwd)
cat > "$out/plan" <<PLAN
export VY_SRC='$SRC_ROOT'
export VY_MODDIR='$moddir'
export VY_KTREE='$tree'
export VY_SCENARIOS='$(echo $paths)'
export VY_SLOW='${VY_SLOW:-1}'
export VY_SCENARIO_TIMEOUT='${VY_SCENARIO_TIMEOUT:-600}'
export VY_SOAK_CYCLES='${VY_SOAK_CYCLES:-20}'
export VY_BENCH_ROUNDS='${VY_BENCH_ROUNDS:-}'
export VY_BENCH_SECONDS='${VY_BENCH_SECONDS:-}'
export VY_ICOUNT='${VM_ICOUNT:-}'
export VY_MODE='$mode'
PLAN

note "booting $KVER (scenarios: $(echo $scenarios))"
# KVM is not used: it hangs on these hosts; software emulation is reliable.
# The serial console is cleaned of terminal control sequences and stamped.
accel="-accel tcg"
if [ -n "${VM_ICOUNT:-}" ]; then
	# The instruction counter needs the single-threaded emulator.
	accel="-accel tcg,thread=single -icount shift=$VM_ICOUNT,sleep=off"
	VM_SMP=${VM_SMP:-1}
fi
set +e
# shellcheck disable=SC2086
timeout $(( ${VM_TIMEOUT:-1800} * ${VY_SLOW:-1} )) qemu-system-x86_64 \
	$accel -smp "${VM_SMP:-2}" -m "${VM_MEM:-1024}" \
	-display none -monitor none -serial stdio -no-reboot \
	-kernel "$tree/boot/vmlinuz-$KVER" -initrd "$initrd" \
	-append "console=ttyS0 quiet panic=-1 log_buf_len=8M vy.stage2=$VM_DIR/guest/stage2.sh" \
	-virtfs local,path=/,mount_tag=hostroot,security_model=none,readonly=on,multidevs=remap \
	-virtfs "local,path=$out,mount_tag=outdir,security_model=none" \
	-device virtio-rng-pci -net none ${QEMU_EXTRA:-} < /dev/null 2>&1 |
	sed -u -e 's/\r$//' -e 's/\x1bc//g' -e 's/\x1b\[[0-9;?]*[a-zA-Z]//g' |
	grep --line-buffered -vE '^(SeaBIOS|Booting from|iPXE|$)' |
	while IFS= read -r line; do echo "[host $(vm_elapsed)] $line"; done | tee "$out/serial.log"
set -e
note "VM stopped; results in $out"

if ! grep -q '^RESULT ' "$out/result" 2>/dev/null; then
	echo "VM run did not finish (no RESULT line; see $out/serial.log)" >&2
	exit 1
fi
grep -E '^FAIL' "$out/result" | sed 's/^/  /' || true
pass=$(grep -c '^PASS' "$out/result" || true)
fails=$(grep -c '^FAIL' "$out/result" || true)
skipped=$(grep -c '^SKIP' "$out/result" || true)
echo "VM $mode: $pass passed, $fails failed, $skipped skipped"
[ "$fails" -eq 0 ]
