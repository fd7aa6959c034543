# Completion of keldra-package for bash.

_keldra_package_options() {
    case $1 in
    build) echo "-o --output --sign --force --help" ;;
    check) echo "--processor --modules --keys --serial --strict --json --help" ;;
    plan) echo "--installed --modules --baud --force --json --help" ;;
    show) echo "--processor --serial --help" ;;
    *) echo "build check plan show --version --help" ;;
    esac
}

_keldra_package() {
    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command=''
    local kinds="pic24 pic24-old pic32-pages pic32-records stm32f0 stm32f3 stm32f4"
    COMPREPLY=()
    ((COMP_CWORD == 1)) || command=${COMP_WORDS[1]}
    case $before in
    --processor)
        mapfile -t COMPREPLY < <(compgen -W "$kinds" -- "$current")
        return
        ;;
    --baud)
        mapfile -t COMPREPLY < <(compgen -W "19200 38400 57600 115200" -- "$current")
        return
        ;;
    esac
    if [[ -z $command || $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(_keldra_package_options "$command")" -- "$current")
    else
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
    fi
}

complete -o filenames -F _keldra_package keldra-package
