#!/bin/bash
# Runs a command in a namespace of its own with a system bus, the policy service and the broker of a build folder.
#
#   system-bus.sh [--grant | --challenge | --deny | --unregistered] [--password PASSWORD] [--tools FOLDER]
#                 [--build FOLDER | --installed FOLDER] -- COMMAND...
#
#   --grant         the rules give the right without asking (the default)
#   --challenge     an administrator has to authenticate, as the action says by itself
#   --deny          the rules refuse
#   --unregistered  the policy service does not know the action
#   --password      the administrator's password in the namespace (root, and nobody else, is administrator then)
#   --tools         the folder whose programs the broker takes for tools; /etc/kelto is the namespace's own in any case
#   --build         where bin/ and share/ of the build are (default: build/dev of this project)
#   --installed     the root folder of an installation, which is used in place of a build
#
# Needs root. Mounts and processes are the namespace's own, and everything ends with the command or with this script. /run is
# empty there but for the bus, so that nothing of the machine's session or service manager is seen. Root always has the right;
# to see the rules at work, start the command as another user, for instance with "setpriv --reuid 65534 --clear-groups".
set -euo pipefail

fail() { echo "system-bus.sh: $*" >&2; exit 125; }

arguments=("$@")
mode=grant password= tools= inside=no installed=
build=$(cd "$(dirname "$0")/../.." && pwd)/build/dev
while [ $# -gt 0 ]; do
  case $1 in
    --grant | --challenge | --deny | --unregistered) mode=${1#--} ;;
    --password) password=${2:?}; shift ;;
    --tools) tools=${2:?}; shift ;;
    --build) build=${2:?}; shift ;;
    --installed) installed=${2:?}; shift ;;
    --inside) inside=yes ;;
    --) shift; break ;;
    *) fail "unknown option $1" ;;
  esac
  shift
done
[ $# -gt 0 ] || fail "no command"
[ "$(id -u)" = 0 ] || fail "needs root"
for folder in /etc/polkit-1/rules.d /usr/share/polkit-1/actions /usr/share/dbus-1/system-services /etc/dbus-1/system.d; do
  [ -d $folder ] || fail "$folder is missing: are dbus and polkitd installed?"
done
[ -n "$installed" ] || [ -x "$build/bin/authorizationd" ] || fail "$build/bin/authorizationd is missing: is it built?"

if [ $inside = no ]; then
  exec unshare --mount --pid --fork --kill-child --mount-proc -- "$0" --inside "${arguments[@]}"
fi

# From here on in the namespace, as its first process. All files lie in its /run and are gone with it.
mount -t tmpfs -o mode=755 tmpfs /run
. "$(dirname "$0")/policy.sh"
if [ -n "$installed" ]; then lay_installation "$mode" "$installed"; else lay_policy "$mode" "$build"; fi
[ -z "$tools" ] || echo "tools = $tools" >/etc/kelto/authorization.conf

if [ -n "$password" ]; then
  hash=$(perl -e 'print crypt($ARGV[0], "\$6\$kelto")' "$password")
  install -m 640 -g shadow /dev/null /run/kelto/shadow
  sed "s|^root:[^:]*|root:$hash|" /etc/shadow >/run/kelto/shadow
  mount --bind /run/kelto/shadow /etc/shadow
fi

unset DBUS_SYSTEM_BUS_ADDRESS DBUS_STARTER_ADDRESS DBUS_STARTER_BUS_TYPE
[ -d "${XDG_RUNTIME_DIR:-}" ] || unset XDG_RUNTIME_DIR
mkfifo /run/kelto/ready
dbus-daemon --system --nofork --nopidfile --nosyslog --print-address=3 3>/run/kelto/ready &
read -r _ </run/kelto/ready || fail "the bus did not start"

status=0
"$@" || status=$?
exit $status
