# shellcheck shell=bash
# Completion of the program corvane for bash.

_corvane() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command=''
  local common='--user --password-file --cacert --capath --insecure --timeout --limit --limit-percent --low-water
    --no-throttle --json --quiet --verbose --log-file --help --version'
  COMPREPLY=()
  if ((COMP_CWORD > 1)); then
    command=${COMP_WORDS[1]}
  fi
  case $previous in
    -o | --output | --password-file | --cacert | --log-file | --file)
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
    --timeout | --limit | --limit-percent | --low-water | --field | --data) return ;;
  esac
  local words=''
  case $command in
    '') words='get post --help --version' ;;
    get) words="--output --resume --accept-http-errors $common" ;;
    post) words="--field --data --file --output --accept-http-errors $common" ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -F _corvane corvane
