# Host-side settings shared by the VM harness scripts (sourced, POSIX sh).
#   KVER              kernel ABI the guest boots (default: what linux-image-amd64 depends on)
#   VY_KERNEL_CACHE   where the kernel package is downloaded and unpacked
#                     (default: .cache/kernel in the source tree)

VM_DIR=$(cd "$(dirname "$0")" && pwd)
SRC_ROOT=$(cd "$VM_DIR/.." && pwd)
VY_KERNEL_CACHE=${VY_KERNEL_CACHE:-$SRC_ROOT/.cache/kernel}

# The same release the modules are built for (scripts/kver.sh).
vm_kver() {
	if [ -z "${KVER:-}" ]; then
		KVER=$("$SRC_ROOT/scripts/kver.sh")
		[ -n "$KVER" ] || { echo "vm: cannot tell the kernel ABI; set KVER" >&2; return 1; }
	fi
	export KVER
}

# Seconds since $VM_T0 with two decimals.
vm_elapsed() { awk -v t0="$VM_T0" -v t="$(date +%s.%N)" 'BEGIN { printf "%6.2f", t - t0 }'; }
