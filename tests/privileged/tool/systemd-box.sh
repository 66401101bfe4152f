#!/bin/sh
# systemd-box.sh FOLDER: runs FOLDER/job.sh where a real systemd is the service manager that knows the units of FOLDER/units
# only, FOLDER/Library is /Library, and everything else that is written goes nowhere. Needs root. Leaves the job's exit status
# in FOLDER/status; without that file this machine cannot do it. KELTO_BOX_ROOT is the root folder in place of the machine's, and
# KELTO_BOX_SECONDS the limit in place of 60.
set -u
folder=$1

outside() {
  group=$(mount | sed -n 's/^.* on \(.*\) type cgroup2 .*$/\1/p' | head -n 1)/kelto-box-$$
  mkdir "$group" 2>/dev/null || exit 77
  (
    echo "$(sh -c 'echo $PPID')" >"$group/cgroup.procs"
    exec timeout "${KELTO_BOX_SECONDS:-60}" unshare --fork --pid --mount --uts --ipc --cgroup --mount-proc --kill-child \
      sh "$0" "$folder" inside
  ) >"$folder/console" 2>&1 </dev/null
  # The processes of the ended name space are still being collected.
  tries=0
  until find "$group" -depth -type d -exec rmdir {} + 2>/dev/null; do
    tries=$((tries + 1))
    [ $tries -lt 100 ] || break
    sleep 0.05
  done
}

# A root of its own over the machine's, so that nothing here can change that.
make_root() {
  mount -t tmpfs tmpfs "$folder/box" || exit 77
  mkdir "$folder/box/upper" "$folder/box/work" "$folder/box/root"
  root=$folder/box/root
  mount -t overlay -o "lowerdir=${KELTO_BOX_ROOT:-/},upperdir=$folder/box/upper,workdir=$folder/box/work" overlay "$root" || exit 77
  mount -t proc proc "$root/proc" && mount --rbind /dev "$root/dev" && mount -t sysfs sysfs "$root/sys" || exit 77
  mount -t tmpfs tmpfs "$root/sys/fs/cgroup" 2>/dev/null
  mount -t cgroup2 cgroup2 "$root/sys/fs/cgroup" || exit 77
  mount -t tmpfs tmpfs "$root/run"
  mount -t tmpfs tmpfs "$root/var/lib/systemd"
  mkdir -p "$root/run/empty" "$root/run/old" "$root/Library" "$root$folder"
  mount --bind "$folder" "$root$folder"
  mount --bind "$folder/Library" "$root/Library"
  mount --bind "$folder/units" "$root/etc/systemd/system"
  cd "$root" && pivot_root . run/old && cd / || exit 77
  umount -l /run/old
}

run_job() {
  tries=0
  until [ -S /run/systemd/private ]; do
    tries=$((tries + 1))
    [ $tries -lt 500 ] || kill -s RTMIN+14 1
    sleep 0.02
  done
  sh "$folder/job.sh"
  echo $? >"$folder/status"
  kill -s RTMIN+14 1
}

case ${2:-outside} in
outside) outside ;;
inside)
  make_root
  run_job </dev/null &
  # Only with a unit path of its own: else it would run the machine's start-up.
  exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin container=x SYSTEMD_UNIT_PATH=/etc/systemd/system \
    SYSTEMD_GENERATOR_PATH=/run/empty SYSTEMD_ENVIRONMENT_GENERATOR_PATH=/run/empty SYSTEMD_LOG_TARGET=console \
    /lib/systemd/systemd --system --unit=test.target --show-status=no
  ;;
esac
