# Completion of notifypi for bash. -*- shell-script -*-
#
# Subcommands, options and what these take are read from the command's own help, so there is nothing
# here that could fall behind it. Files are completed by bash itself, which knows quotes and "~".

# _notifypi_value HELP OPTION : prints the name of the option's value, or nothing when it has none.
_notifypi_value() {
  sed -nE "s/^ +(-[a-z],)?$2 ([^ ]+) ?.*/\2/p" <<<"$1"
}

_notifypi() {
  local current=${COMP_WORDS[COMP_CWORD]} option=${COMP_WORDS[COMP_CWORD - 1]} help
  compopt +o default
  if [ "$COMP_CWORD" = 1 ]; then
    help=$("$1" --help 2>/dev/null) || return
    mapfile -t COMPREPLY < <(compgen -W "--help $(
      sed -n '/^Subcommands:/,$s/^  \([a-z]\{1,\}\) .*/\1/p' <<<"$help")" -- "$current")
    return
  fi
  help=$("$1" "${COMP_WORDS[1]}" --help 2>/dev/null) || return

  # "--plugin=FILE" is three words to bash.
  if [ "$current" = = ]; then
    current=
  elif [ "$option" = = ]; then
    option=${COMP_WORDS[COMP_CWORD - 2]}
  fi
  if [[ $option = --* ]]; then
    case $(_notifypi_value "$help" "$option") in
      FILE | '[FILE]'*)
        compopt -o default
        return
        ;;
      DIR)
        compopt -o dirnames
        return
        ;;
      ?*) return ;;
    esac
  fi
  if [[ $current = -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$(
      sed -nE 's/^ +(-[a-z],)?(--[a-z-]+) .*/\2/p' <<<"$help")" -- "$current")
  elif grep -q '^Positionals:' <<<"$help"; then
    compopt -o default
  fi
}

complete -F _notifypi notifypi
