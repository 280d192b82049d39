# bash completion for dtvctl, by whatever path it is called: commands, options, URIs, the virtual television's commands
# and the TV API's functions. It asks the running host, or else a set in a process of its own with a state folder that is
# thrown away, and keeps the answers for a day.
#
# In a shell, or in ~/.bashrc: source cli/dtvctl.bash. "make install" puts it where bash finds it.

_dtvctl_texts() {  # PATTERN: of the JSON on standard input, the texts of a member, or of the array that it is
  grep -o "$1" | sed 's/^"[^"]*"://' | tr -d '["' | tr , '\n' | sort -u
}

_dtvctl_ask() {  # NAME PATTERN COMMAND...: the texts of a member in a reply, kept under NAME
  local kept="${XDG_CACHE_HOME:-$HOME/.cache}/dtvctl/$1" pattern=$2 answer folder program=${COMP_WORDS[0]/#\~/$HOME}
  shift 2
  if [[ -s $kept && -z $(find "$kept" -mmin +1440 2>/dev/null) ]]; then
    cat "$kept"
    return
  fi
  answer=$("$program" --timeout 1 --json "$@" 2>/dev/null | _dtvctl_texts "$pattern")
  if [[ -z $answer ]] && folder=$(mktemp -d 2>/dev/null); then
    answer=$("$program" --local --state "$folder" --json "$@" 2>/dev/null | _dtvctl_texts "$pattern")
    rm -rf "$folder"
  fi
  [[ -z $answer ]] && return
  mkdir -p "${kept%/*}" 2>/dev/null && printf '%s\n' "$answer" >"$kept" 2>/dev/null
  printf '%s\n' "$answer"
}

_dtvctl_uris() { _dtvctl_ask "uris$1" '"uri":"[^"]*"' list ${1:+--can $1}; }

_dtvctl_tv_words() {  # WORD...: what may come after these words of a command of the television
  local -a given=()
  local word
  for word in "$@"; do  # a value, such as a folder, does not change the answer: with X for each, few answers are kept
    [[ $word =~ ^[a-z]+$ ]] || word=X
    given+=("$word")
  done
  local name=${given[*]} next
  next=$(_dtvctl_ask "tv-${name// /-}" '"next":\[[^]]*' tv help "${given[@]}")
  COMPREPLY=($(compgen -W "$(grep -v '[A-Z]' <<<"$next")" -- "$current"))
  [[ $next =~ (^|$'\n')DIR($|$'\n') ]] && COMPREPLY+=($(compgen -d -- "$current"))
  [[ $next =~ (^|$'\n')FILE($|$'\n') ]] && COMPREPLY+=($(compgen -f -- "$current"))
}

_dtvctl() {
  local commands='get set watch list functions trace record replay case tv'
  local options='--host --local --state --json --no-wait --count --for --can --timeout --help --version'
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]} command='' first=0 inner='' fault='' i

  case $previous in
    --state) COMPREPLY=($(compgen -d -- "$current")); return ;;
    --host) COMPREPLY=($(compgen -W '127.0.0.1:8080' -- "$current")); return ;;
    --can) COMPREPLY=($(compgen -W 'get set notify' -- "$current")); return ;;
    --count | --for | --timeout) COMPREPLY=(); return ;;
  esac

  # The command, and how many words of it stand before the cursor. Behind "--" in watch and trace another one begins;
  # no word behind it is an option, and none behind "tv fault".
  for ((i = 1; i < COMP_CWORD; ++i)); do
    case ${COMP_WORDS[i]} in
      --)
        if [[ -z $inner && $command == @(watch|trace) ]]; then commands='get set tv' command='' first=0 fault=''; fi
        inner=yes ;;
      --host | --state | --count | --for | --can | --timeout) [[ $command$fault == tvyes || -n $inner ]] || ((++i)) ;;
      -*) ;;
      *)
        if [[ -z $command ]]; then
          command=${COMP_WORDS[i]} first=$i
        elif ((i == first + 1)) && [[ ${COMP_WORDS[i]} == fault ]]; then
          fault=yes
        fi ;;
    esac
  done

  if [[ $current == -* && $command$fault != tvyes ]]; then
    [[ -z $inner ]] && COMPREPLY=($(compgen -W "$options" -- "$current"))
    return
  fi
  case $command in
    '') COMPREPLY=($(compgen -W "$commands" -- "$current")) ;;
    get | set) ((COMP_CWORD == first + 1)) && COMPREPLY=($(compgen -W "$(_dtvctl_uris)" -- "$current")) ;;
    record | replay | case) ((COMP_CWORD == first + 1)) && COMPREPLY=($(compgen -f -- "$current")) ;;
    watch) COMPREPLY=($(compgen -W "$(_dtvctl_uris notify)" -- "$current")) ;;
    tv)
      if ((COMP_CWORD == first + 1)); then
        COMPREPLY=($(compgen -W "$(_dtvctl_ask tv '"name":"[^"]*"' tv help)" -- "$current"))
      elif [[ ${COMP_WORDS[first+1]} == fault ]]; then
        local words='--clear --delay --fail --drop-callback --repeat-callback'
        ((COMP_CWORD == first + 2)) && words="--clear $(_dtvctl_ask functions '"name":"[^"]*"' functions)"
        COMPREPLY=($(compgen -W "$words" -- "$current"))
      else
        _dtvctl_tv_words "${COMP_WORDS[@]:first+1:COMP_CWORD-first-1}"
      fi ;;
  esac
}

complete -F _dtvctl dtvctl
