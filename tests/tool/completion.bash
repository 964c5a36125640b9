# Drives the completion function as bash does: the line up to the cursor in, COMPREPLY and its options out.
#
#     bash completion.bash      with veltor in the PATH, in a folder with the files that completion_test.sh lays out
set -u
source <(veltor completion bash)
[ "$(complete -p veltor)" = "complete -F _veltor veltor" ] || echo "not registered: $(complete -p veltor)"
COMP_WORDBREAKS=$' \t\n"\'@><=;|&(:'
compopt() { options="$*"; }

# expect LINE OPTIONS REPLY...: the cursor stands behind the line.
expect() {
    local line=$1 wanted=$2 actual
    shift 2
    options=
    COMP_LINE="$line and what stands behind the cursor"
    COMP_POINT=${#line}
    _veltor
    wanted+=$(printf ' <%s>' "$@")
    actual=$options$(printf ' <%s>' "${COMPREPLY[@]+"${COMPREPLY[@]}"}")
    [ "$actual" = "$wanted" ] || printf '%s\n  expected %s\n  actual   %s\n' "$line" "$wanted" "$actual"
}

expect 'veltor se' '' search set
expect 'veltor help exp' '' explain
expect 'veltor set --allow-' '' --allow-unknown --allow-lockout
expect 'veltor get zor-slapdPor' '' zor-slapdPort
expect 'veltor get por' '' port
expect 'veltor set audit-' '' ''
expect 'veltor set securi' '-o nospace' security=
# Bash replaces what stands behind the "=".
expect 'veltor set security=SSL' '' SSL SSLOnly SSLTLS
expect 'veltor set security+=T' '' TLS
expect 'veltor --format=j' '' json
expect 'veltor completion z' '' zsh
expect 'veltor get -F in.conf -b cn=Fr' '' 'Front\ End,\ cn=Configuration'
expect "veltor delete -F in.conf 'cn=Fr" '' 'cn=Front End, cn=Configuration'
expect 'veltor delete -F in.conf "cn=Fr' '' 'cn=Front End, cn=Configuration'
expect 'veltor delete -F in.conf cn=Front\ End,\ cn=' '' Configuration
expect 'veltor delete -F in.conf cn=q' '' 'quote\\\"s\ and\ \$more,\ cn=Configuration'
# The environment names another file than -F.
expect 'veltor delete cn=' '' Configuration 'Front\ End,\ cn=Configuration' \
    'quote\\\"s\ and\ \$more,\ cn=Configuration'
expect 'veltor delete -F missing.conf cn=' '' ''
expect 'veltor delete -F folder cn=' '' ''
expect 'veltor delete -F unreadable.conf cn=' '' ''
expect 'veltor delete -F ~/in.conf cn=Fr' '' 'Front\ End,\ cn=Configuration'
expect 'veltor get -F i' '-o default' ''
expect 'veltor get --file=i' '-o default' ''
expect 'veltor passwd -T x' '-o default' ''
expect 'veltor get -w ' '' ''
expect 'veltor set adminPW' '' ''
expect 'veltor passwd adminP' '' adminPW
