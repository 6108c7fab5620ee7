# bash completion for sheet: commands, their options, and files (workbooks for the workbook
# ones: .xls, .xlsx, .xlsm).
_sheet() {
  local cur prev words cword
  _init_completion 2>/dev/null || {
    cur=${COMP_WORDS[COMP_CWORD]}
    prev=${COMP_WORDS[COMP_CWORD - 1]}
    cword=$COMP_CWORD
    words=("${COMP_WORDS[@]}")
  }
  local commands="cat cell info set add insert clear convert sql report help"
  if [ "$cword" -eq 1 ]; then
    mapfile -t COMPREPLY < <(compgen -W "$commands --help --version" -- "$cur")
    return
  fi
  case $prev in
    -d | --rms | --price-protection | --script-validation) return ;;
    -s)
      # Sheet names are not listed: that would mean opening the workbook.
      return
      ;;
  esac
  local opts="-d -s --help"
  case ${words[1]} in
    set | add | insert) opts="$opts --force" ;;
    convert) opts="-d -s --quoted --help" ;;
    report) opts="--rms --price-protection --script-validation --help" ;;
    sql) opts="--help" ;;
    help)
      mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$cur")
      return
      ;;
  esac
  if [[ $cur == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$opts" -- "$cur")
  elif [ "${words[1]}" = sql ] || [ "${words[1]}" = report ]; then
    mapfile -t COMPREPLY < <(compgen -f -X '!*.[xX][lL][sS]' -- "$cur"
      compgen -f -X '!*.[xX][lL][sS][xXmM]' -- "$cur"; compgen -d -- "$cur")
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$cur")
  fi
}
complete -F _sheet sheet
