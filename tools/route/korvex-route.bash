# bash completion of korvex-route: its options, and track file names.

_korvex_route()
{
    local cur=$2 prev=$3
    COMPREPLY=()
    case $prev in
    --speed | --rate | --loop | --accuracy | --track | --segment | --max-pause) return ;;
    --geojson)
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$cur")
        return
        ;;
    esac
    if [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "--speed --rate --loop --accuracy --track --segment --max-pause --geojson
            --help --version" -- "$cur")
    else
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$cur")
    fi
}
complete -F _korvex_route korvex-route
