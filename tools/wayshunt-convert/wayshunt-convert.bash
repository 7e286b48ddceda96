# bash completion for wayshunt-convert: commands, each command's options, and
# the values of an option that takes one of a set (--era, --step, --color),
# all as the tool's own --help lists them, so that completion follows it.
_wayshunt_convert() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]} cmd=${COMP_WORDS[1]} values
  if [ "$COMP_CWORD" -eq 1 ]; then
    local cmds
    cmds=$("${COMP_WORDS[0]}" --help 2>/dev/null | sed -n '/^Subcommands:/,/^$/s/^  *\([a-z][a-z]*\) .*/\1/p')
    COMPREPLY=($(compgen -W "$cmds" -- "$cur"))
  elif [[ $prev == --* ]] &&
    values=$("${COMP_WORDS[0]}" "$cmd" --help 2>/dev/null | grep -oE -- "$prev [A-Z]+:\{[^}]*\}" | sed 's/.*{//; s/}//; s/,/ /g') &&
    [ -n "$values" ]; then
    COMPREPLY=($(compgen -W "$values" -- "$cur"))
  elif [[ $cur == -* ]]; then
    COMPREPLY=($(compgen -W "$("${COMP_WORDS[0]}" "$cmd" --help 2>/dev/null | grep -oE -- '--[a-z][a-z-]*' | sort -u)" -- "$cur"))
  else
    COMPREPLY=($(compgen -f -- "$cur"))
  fi
}
complete -o filenames -F _wayshunt_convert wayshunt-convert
