# shellcheck shell=bash
# Completion of the program corvane for bash.

_corvane() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command=''
  local messages='--json --quiet --verbose --log-file --help --help-all --version'
  local transfer="--user --password-file --cacert --capath --insecure --timeout --limit --limit-percent --low-water
    --no-throttle $messages"
  local requests='--redirects --header --header-file --user-agent'
  local retries='--retries --retry-wait'
  COMPREPLY=()
  if ((COMP_CWORD > 1)); then
    command=${COMP_WORDS[1]}
  fi
  case $previous in
    -o | --output | --header-file | --password-file | --cacert | --log-file | --file | --sizes | --times)
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      return
      ;;
    --into | --capath)
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -d -- "$current")
      return
      ;;
    --user)
      mapfile -t COMPREPLY < <(compgen -u -- "$current")
      return
      ;;
    --type)
      mapfile -t COMPREPLY < <(compgen -W 'application/json application/octet-stream text/plain' -- "$current")
      return
      ;;
    --timeout | --limit | --limit-percent | --low-water | --redirects | --retries | --retry-wait) return ;;
    --connections | --depth | --max-delete | --include | --exclude) return ;;
    --field | --data | --ignore | --header | --user-agent | --sha256) return ;;
  esac
  local words=''
  case $command in
    '') words='get post mirror sync resolve --help --version' ;;
    get)
      words="--output --remote-name --into --resume --sha256 --remote-time --text --accept-http-errors $requests
        $retries $transfer"
      ;;
    post) words="--field --data --file --type --output --text --accept-http-errors $requests $transfer" ;;
    mirror)
      words="--resume --ignore --sizes --times $transfer"
      # The second argument is a directory.
      if [[ $current != -* ]]; then
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -d -- "$current")
        return
      fi
      ;;
    sync)
      words="--plan --include --exclude --depth --delete --max-delete --verify --fail-fast --connections
        $retries $requests $transfer"
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
