# bash completion for kelto(1)

_kelto() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]} command=${COMP_WORDS[1]}
  local changing='--wait-pid --no-relaunch --yes --json --help' options=
  COMPREPLY=()
  if [ "$COMP_CWORD" -eq 1 ]; then
    mapfile -t COMPREPLY < <(compgen -W 'install update remove rollback history verify status --help --version' -- "$current")
    return
  fi
  case $previous in
    --wait-pid) mapfile -t COMPREPLY < <(compgen -W "$(cd /proc && echo [0-9]*)" -- "$current"); return ;;
    --version) return ;;
    --to | --journal) mapfile -t COMPREPLY < <(compgen -d -- "$current"); compopt -o filenames; return ;;
  esac
  case $command in
    install | update) options="--to $changing" ;;
    remove) options=$changing ;;
    rollback) options="--version $changing" ;;
    history) options='--journal --json --help' ;;
    verify | status) options='--json --help' ;;
  esac
  if [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
  else
    # Bundles are folders.
    mapfile -t COMPREPLY < <(compgen -d -- "$current")
    compopt -o filenames
  fi
}
complete -F _kelto kelto
