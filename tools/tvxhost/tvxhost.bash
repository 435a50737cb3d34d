# bash completion for tvxhost                                -*- shell-script -*-
# Installed as share/bash-completion/completions/tvxhost; to try it from a
# source tree: source tools/tvxhost/tvxhost.bash

_tvxhost() {
    local cur prev words cword
    if declare -F _init_completion >/dev/null; then
        _init_completion || return
    else
        cur=${COMP_WORDS[COMP_CWORD]}
        prev=${COMP_WORDS[COMP_CWORD - 1]}
        words=("${COMP_WORDS[@]}")
        cword=$COMP_CWORD
    fi

    local commands="alias alloc console copy crc errors fs json plist rle text threads watch help"
    # The console's own commands, for -c.
    local console_commands="trace.set trace.get trace.getcategories trace.set.master
        trace.get.master trace.createdefaultconsolelogfile debug.get debug.set debug.list
        debug.clear filesupport.listdirs filesupport.listvols filesupport.file filesupport.dir
        help exit"
    # Find the command and subcommand, skipping the global options.
    local i=1 command="" sub=""
    while ((i < cword)); do
        case ${words[i]} in
            --lang | -c) ((i += 2)); continue ;;
            -*) ((i++)); continue ;;
        esac
        break
    done
    if ((i < cword)); then
        command=${words[i]}
        ((i + 1 < cword)) && sub=${words[i + 1]}
    fi

    if [[ $prev == --lang ]]; then
        COMPREPLY=($(compgen -W "de fr en" -- "$cur"))
        return
    fi
    if [[ $prev == -c ]]; then
        COMPREPLY=($(compgen -W "$console_commands" -- "$cur"))
        return
    fi
    if [[ -z $command ]]; then
        if [[ $cur == -* ]]; then
            COMPREPLY=($(compgen -W "--lang --verbose -c --help --version -h -V" -- "$cur"))
        else
            COMPREPLY=($(compgen -W "$commands" -- "$cur"))
        fi
        return
    fi

    local subs=""
    case $command in
        # Commands without subcommands: their options, and files for crc.
        rle)
            COMPREPLY=($(compgen -W "-d --decode --help" -- "$cur"))
            return
            ;;
        console)
            COMPREPLY=($(compgen -W "--help" -- "$cur"))
            return
            ;;
        copy | crc | watch)
            # Files, or folders for watch.
            if [[ $cur == -* ]]; then
                COMPREPLY=($(compgen -W "--help" -- "$cur"))
            else
                compopt -o filenames 2>/dev/null
                local kind=-f
                [[ $command == watch ]] && kind=-d
                COMPREPLY=($(compgen $kind -- "$cur"))
            fi
            return
            ;;
        alias) subs="make resolve" ;;
        alloc) subs="classes size stress" ;;
        errors) subs="test substitute zstring contract" ;;
        fs) subs="info ls volumes legalname copy" ;;
        json) subs="validate pretty get" ;;
        plist) subs="show get set tojson validate" ;;
        text) subs="calc number utf8 normalize upper lower fold title" ;;
        threads) subs="bench" ;;
        help)
            [[ -z $sub ]] && COMPREPLY=($(compgen -W "${commands% help}" -- "$cur"))
            return
            ;;
        *) return ;;
    esac
    if [[ -z $sub ]]; then
        COMPREPLY=($(compgen -W "$subs --help" -- "$cur"))
        return
    fi

    local options="--help"
    case $command/$sub in
        alias/make) options+=" --base -b --plist" ;;
        alias/resolve) options+=" --base -b --no-mount" ;;
        errors/test) options+=" --fatal --deferred" ;;
        fs/ls) options+=" -r" ;;
        fs/copy) options+=" --force" ;;
        json/get) options+=" --raw -r" ;;
        plist/set) options+=" --force" ;;
        text/number) options+=" --group --digits --plus" ;;
    esac
    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "$options" -- "$cur"))
        return
    fi
    case $command/$sub in
        alias/make | alias/resolve | fs/info | fs/ls | fs/copy | plist/show | plist/get | plist/tojson | plist/validate | \
            json/validate | json/pretty)
            compopt -o filenames 2>/dev/null
            COMPREPLY=($(compgen -f -- "$cur"))
            ;;
        plist/set)
            # file, key path, type, value
            local n=0 j
            for ((j = i + 2; j < cword; j++)); do [[ ${words[j]} == -* ]] || ((n++)); done
            case $n in
                0) compopt -o filenames 2>/dev/null; COMPREPLY=($(compgen -f -- "$cur")) ;;
                2) COMPREPLY=($(compgen -W "string ustring bool u16 u32 i32 i64 u64 float double
                                string[] ustring[] bool[] u16[] u32[] i32[] i64[] u64[] float[]
                                double[]" -- "$cur")) ;;
            esac
            ;;
        json/get)
            # path, then the file
            local n=0 j
            for ((j = i + 2; j < cword; j++)); do [[ ${words[j]} == -* ]] || ((n++)); done
            if ((n == 1)); then
                compopt -o filenames 2>/dev/null
                COMPREPLY=($(compgen -f -- "$cur"))
            fi
            ;;
        text/normalize)
            [[ $prev == normalize ]] && COMPREPLY=($(compgen -W "nfc nfd nfkc nfkd" -- "$cur"))
            ;;
    esac
} && complete -F _tvxhost tvxhost
