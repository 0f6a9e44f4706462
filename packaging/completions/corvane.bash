# shellcheck shell=bash
# Completion of the program corvane for bash.

_corvane() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command=''
  local messages='--json --quiet --verbose --log-file --help --version'
  local common="--user --password-file --cacert --capath --insecure --timeout --limit --limit-percent --low-water
    --no-throttle $messages"
  COMPREPLY=()
  if ((COMP_CWORD > 1)); then
    command=${COMP_WORDS[1]}
  fi
  case $previous in
    -o | --output | --password-file | --cacert | --log-file | --file | --sizes | --times)
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      return
      ;;
    --capath)
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -d -- "$current")
      return
      ;;
    --user)
      mapfile -t COMPREPLY < <(compgen -u -- "$current")
      return
      ;;
    --timeout | --limit | --limit-percent | --low-water | --field | --data | --ignore) return ;;
  esac
  local words=''
  case $command in
    '') words='get post mirror resolve --help --version' ;;
    get) words="--output --resume --accept-http-errors $common" ;;
    post) words="--field --data --file --output --accept-http-errors $common" ;;
    mirror)
      words="--resume --ignore --sizes --times $common"
      # The second argument is a directory.
      if [[ $current != -* ]]; then
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -d -- "$current")
        return
      fi
      ;;
    resolve)
      words=$messages
      if [[ $current != -* ]]; then
        mapfile -t COMPREPLY < <(compgen -A hostname -- "$current")
        return
      fi
      ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -F _corvane corvane
