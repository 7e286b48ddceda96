# bash completion for wayshunt-convert: commands, and each command's options
# as its own --help lists them, so that completion follows the tool.
_wayshunt_convert() {
  local cur=${COMP_WORDS[COMP_CWORD]} cmd=${COMP_WORDS[1]}
  if [ "$COMP_CWORD" -eq 1 ]; then
    local cmds
    cmds=$("${COMP_WORDS[0]}" --help 2>/dev/null | sed -n '/^Subcommands:/,/^$/s/^  *\([a-z][a-z]*\) .*/\1/p')
    COMPREPLY=($(compgen -W "$cmds" -- "$cur"))
  elif [[ $cur == -* ]]; then
    COMPREPLY=($(compgen -W "$("${COMP_WORDS[0]}" "$cmd" --help 2>/dev/null | grep -oE -- '--[a-z][a-z-]*' | sort -u)" -- "$cur"))
  else
    COMPREPLY=($(compgen -f -- "$cur"))
  fi
}
complete -o filenames -F _wayshunt_convert wayshunt-convert
