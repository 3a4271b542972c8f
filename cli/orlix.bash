# bash completion for orlix                                  -*- shell-script -*-

# Files are offered where a command reads them.
_orlix_files() {
  compopt -o filenames 2> /dev/null
  COMPREPLY=($(compgen -f -- "$1"))
}

_orlix() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
  local words=("${COMP_WORDS[@]}") cword=$COMP_CWORD

  local commands="json base64 hex pem normalize casefold ldapprep nameprep idn time prime version"
  # The subcommand is the first word that is not a global option.
  local i command="" first=1
  for ((i = 1; i < cword; i++)); do
    case ${words[i]} in
      --verbose) ;;
      *) command=${words[i]}; first=$((i + 1)); break ;;
    esac
  done

  if [[ -z $command ]]; then
    COMPREPLY=($(compgen -W "$commands --help --version -V --verbose" -- "$cur"))
    return
  fi

  local n=$((cword - first)) # index of the word being completed after the command
  case $command in
    json)
      case $prev in --spaces) return ;; esac
      if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "--pretty --crlf --lf --cr --spaces --sort --help" -- "$cur"))
      else
        _orlix_files "$cur"
      fi ;;
    base64)
      case $prev in
        --eol) COMPREPLY=($(compgen -W "crlf lf cr none" -- "$cur")); return ;;
        --ws) COMPREPLY=($(compgen -W "none eol all" -- "$cur")); return ;;
        --line) return ;;
      esac
      if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "-d --decode --url --no-pad --eol --line --ws --help" -- "$cur"))
      else
        _orlix_files "$cur"
      fi ;;
    hex)
      if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "-d --decode --upper --help" -- "$cur"))
      else
        _orlix_files "$cur"
      fi ;;
    pem)
      if ((n == 0)); then
        COMPREPLY=($(compgen -W "encode decode --help" -- "$cur"))
      elif ((n > 1)); then
        _orlix_files "$cur"
      fi ;;
    normalize)
      ((n == 0)) && COMPREPLY=($(compgen -W "nfc nfd nfkc nfkd" -- "$cur")) ;;
    casefold)
      [[ $cur == -* ]] && COMPREPLY=($(compgen -W "--nfkc --help" -- "$cur")) ;;
    ldapprep)
      ((n == 0)) &&
        COMPREPLY=($(compgen -W "exact ignore numeric telephone telephone-ignore" -- "$cur")) ;;
    nameprep)
      [[ $cur == -* ]] && COMPREPLY=($(compgen -W "--allow-unassigned --help" -- "$cur")) ;;
    idn)
      if ((n == 0)); then
        COMPREPLY=($(compgen -W "to-ascii to-unicode" -- "$cur"))
      elif [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "--std3 --allow-unassigned --wildcard --help" -- "$cur"))
      fi ;;
    time)
      if ((n == 0)); then
        COMPREPLY=($(compgen -W "now convert zones system-zone" -- "$cur"))
        return
      fi
      case $prev in
        --zone | --from | --to)
          COMPREPLY=($(compgen -W "$("${words[0]}" time zones 2>/dev/null | awk '{print $2}')" -- "$cur"))
          return ;;
      esac
      case ${words[first]} in
        now) COMPREPLY=($(compgen -W "--zone" -- "$cur")) ;;
        convert) [[ $cur == -* ]] && COMPREPLY=($(compgen -W "--from --to" -- "$cur")) ;;
      esac ;;
    prime)
      [[ $cur == -* ]] && COMPREPLY=($(compgen -W "--safe --two-high --fast --help" -- "$cur")) ;;
  esac
} &&
  complete -F _orlix orlix

# ex: filetype=sh
