# bash completion for dtvctl, by whatever path it is called. The program itself says what may come next
# ("dtvctl complete WORD..."): it asks the running host, and else the installed libraries, and starts no set.
#
# In a shell, or in ~/.bashrc: source cli/dtvctl.bash. "make install" puts it where bash finds it.

# The words up to the cursor, as dtvctl gets them. bash has also split them at ":" and "=", which are no blanks.
_dtvctl_words() {
  local rest=$COMP_LINE i word
  words=()
  for ((i = 0; i <= COMP_CWORD; ++i)); do
    word=${COMP_WORDS[i]}
    if ((i > 0)) && [[ $rest != [[:blank:]]* ]]; then
      words[-1]+=$word
    else
      rest=${rest#"${rest%%[![:blank:]]*}"}
      words+=("$word")
    fi
    rest=${rest#"$word"}
  done
}

_dtvctl() {
  local -a words files
  local i name current shown
  _dtvctl_words
  local program=${words[0]/#\~/$HOME}
  for i in "${!words[@]}"; do  # without the quotes and backslashes of the shell
    words[i]=${words[i]//\\/}
    words[i]=${words[i]//[\"\']/}
  done
  current=${words[-1]}
  shown=${current%"${current##*[:=]}"}  # bash replaces only what stands behind it
  COMPREPLY=()
  while IFS= read -r name; do
    case $name in
      $'\tfolders' | $'\tfiles')  # bash itself puts the backslashes in such names
        compopt -o filenames 2>/dev/null
        if [[ $name == *folders ]]; then mapfile -t files < <(compgen -d -- "$current")
        else mapfile -t files < <(compgen -f -- "$current"); fi
        COMPREPLY+=("${files[@]}") ;;
      *)
        [[ $name == *= ]] && compopt -o nospace 2>/dev/null
        COMPREPLY+=("$(printf '%q' "${name#"$shown"}")") ;;
    esac
  done < <("$program" complete "${words[@]:1}" 2>/dev/null)
}

complete -F _dtvctl dtvctl
