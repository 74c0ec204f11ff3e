# Completion of record-audio for bash.

_record_audio() {
  local current=${COMP_WORDS[COMP_CWORD]}
  COMPREPLY=()
  if [[ $current == -* ]]; then
    # The options exclude each other.
    if ((COMP_CWORD == 1)); then
      mapfile -t COMPREPLY < <(compgen -W '--stop --cancel --status --recover --help --version' -- "$current")
    fi
  elif ((COMP_CWORD == 1)); then
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  fi
}

complete -F _record_audio record-audio
