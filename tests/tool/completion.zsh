# Drives the completion function as zsh does: words in, what compadd is given out.
#
#     zsh -f completion.zsh     with veltor in the PATH, in a folder with the files that completion_test.sh lays out
setopt no_unset
compdef() { registered="$*" }
source <(veltor completion zsh)
[[ $registered == '_veltor veltor' ]] || print "not registered: $registered"

compadd() {
    local candidate
    while [[ $1 == -* ]]; do
        case $1 in
        -M) shift 2 ;;
        -S) result+="suffix '$2'"; shift 2 ;;
        -d) shown=("${(@P)2}"); shift 2 ;;
        -a) shift; for candidate in "${(@P)1}"; do result+=" <$candidate>"; done; return ;;
        *) shift ;;
        esac
    done
}
compset() { result+="skip $2" }
_files() { result+=" files" }

# expect RESULT WORD...: the cursor stands at the end of the last word, quoted as typed.
expect() {
    local wanted=$1
    shift
    words=(veltor "$@")
    CURRENT=$#words
    IPREFIX= PREFIX=$words[-1]
    result=
    _veltor
    [[ $result == $wanted ]] || print -r -- "$* expected $wanted actual $result"
}

expect ' <search> <set>' se
[[ $shown[2] == 'set  -- Change settings of an entry' ]] || print -r -- "shown: $shown"
expect ' <explain>' help exp
expect ' <port>' get por
expect " <zor-slapdPort>" get zor-slapdPor
expect "suffix '' <security=>" set securi
expect ' <security=SSL> <security=SSLOnly> <security=SSLTLS>' set security=SSL
expect ' <--format=json>' --format=j
expect ' <cn=Front End, cn=Configuration>' get -F in.conf -b cn=Fr
expect ' <cn=Front End, cn=Configuration>' delete -F in.conf 'cn=Front\ E'
expect ' <cn=quote\"s and $more, cn=Configuration>' delete cn=q
expect '' delete -F missing.conf cn=
expect 'skip 0 files' get -F ''
expect 'skip 7 files' get --file=i
expect '' get -w ''
expect '' set adminPW
expect ' <adminPW>' passwd adminP
