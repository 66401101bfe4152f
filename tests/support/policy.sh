# For scripts that run in a mount namespace of their own and with an empty /run: source it, then
#
#   lay_policy MODE BUILD
#
# lays the broker of a build folder over the machine's files for the system bus and the policy service. MODE is "grant" (the
# rules give the right without asking), "challenge" (an administrator has to authenticate, as the action says by itself),
# "deny" (the rules refuse) or "unregistered" (the policy service does not know the action). /etc/kelto is empty then, and can
# be written, unless the namespace had its own before.
#
#   lay_installation MODE FOLDER
#
# does the same with an installation whose root folder is FOLDER, programs and /etc/kelto included.

# over FOLDER LAYER: the files of the layer before those of the folder.
over() { mount -t overlay overlay -o "ro,lowerdir=$2:$1" "$1"; }

# A copy of /etc that can be written, with all that is mounted in it. No overlay: the kernel allows two above each other, and
# the folders below have one already.
own_etc() {
  mounted=$(awk '$5 ~ "^/etc/" { print $5 }' /proc/self/mountinfo)
  mkdir -p /run/kelto/etc-before /run/kelto/etc
  mount --rbind /etc /run/kelto/etc-before
  cp -a --one-file-system /etc/. /run/kelto/etc
  mount --bind /run/kelto/etc /etc
  for place in $mounted; do mount --rbind "/run/kelto/etc-before${place#/etc}" "$place"; done
  mkdir -p -m 755 /etc/kelto
}

lay_rules() {  # MODE
  mkdir -p /run/dbus /run/lock /run/kelto/rules
  case $1 in
    grant) result='polkit.Result.YES' ;;
    deny) result='polkit.Result.NO' ;;
    *) result='polkit.Result.NOT_HANDLED' ;;
  esac
  cat >/run/kelto/rules/00-kelto.rules <<RULES
polkit.addRule(function(action, subject) {
  if (action.id == "com.kelto.authorization.admin") return $result;
});
polkit.addAdminRule(function(action, subject) { return ["unix-user:0"]; });
RULES
  chmod -R a+rX /run/kelto
  over /etc/polkit-1/rules.d /run/kelto/rules
}

lay_policy() {
  mkdir -p /run/kelto/actions /run/kelto/services /run/kelto/bus
  [ -e /etc/kelto/authorization.conf ] || own_etc
  lay_rules "$1"
  cp "$2/share/dbus-1/system-services/com.kelto.Authorization1.service" /run/kelto/services/
  cp "$2/share/dbus-1/system.d/com.kelto.Authorization1.conf" /run/kelto/bus/
  [ "$1" = unregistered ] || cp "$2/share/polkit-1/actions/com.kelto.authorization.policy" /run/kelto/actions/
  chmod -R a+rX /run/kelto
  over /usr/share/polkit-1/actions /run/kelto/actions
  over /usr/share/dbus-1/system-services /run/kelto/services
  over /etc/dbus-1/system.d /run/kelto/bus
}

lay_installation() {
  own_etc
  lay_rules "$1"
  cp -a "$2/etc/kelto/." /etc/kelto
  over /usr "$2/usr"
}
