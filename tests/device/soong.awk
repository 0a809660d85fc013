# Android.bp files to facts: a line "MODULE|TYPE|FOLDER|PROPERTY|VALUE" for each value of a property,
# with strings freed of their quotes. Knows what our files use: properties that are a string, a word
# or a list of strings. Anything else is an error, so that a slip of the pen does not go unread.
function fail(what) {
    printf "%s:%d: %s\n", FILENAME, FNR, what >"/dev/stderr"
    failed = 1
    exit 1
}
function next_token() {
    sub(/^[ \t]+/, "")
    if (!match($0, /^("[^"]*"|[A-Za-z_][A-Za-z_0-9]*|[][{}:,])/)) fail("cannot read '" $0 "'")
    token = substr($0, 1, RLENGTH)
    $0 = substr($0, RLENGTH + 1)
}
function value(text) {
    gsub(/"/, "", text)
    if (property == "name") name = text
    else facts[++count] = property "|" text
}
function end_module(i) {
    if (name == "") name = "(" type ")"
    for (i = 1; i <= count; ++i) print name "|" type "|" folder "|" facts[i]
    print name "|" type "|" folder "|:|"
}
function step() {
    if (state == "top") {
        if (token !~ /^[A-Za-z_]/) fail("a module's type is wanted, not '" token "'")
        type = token; name = ""; count = 0; state = "type"
    } else if (state == "type") {
        if (token != "{") fail("'{' is wanted after '" type "'")
        state = "module"
    } else if (state == "module") {
        if (token == "}") { end_module(); state = "top" }
        else if (token ~ /^[a-z_]/) { property = token; state = "property" }
        else fail("a property is wanted, not '" token "'")
    } else if (state == "property") {
        if (token != ":") fail("':' is wanted after '" property "'")
        state = "value"
    } else if (state == "value") {
        if (token == "[") state = "list"
        else if (token ~ /^["a-z]/) { value(token); state = "comma" }
        else fail("a value is wanted, not '" token "'")
    } else if (state == "list") {
        if (token == "]") state = "comma"
        else if (token ~ /^"/) { value(token); state = "list comma" }
        else fail("a string is wanted, not '" token "'")
    } else if (state == "list comma") {
        if (token == "]") state = "comma"
        else if (token == ",") state = "list"
        else fail("',' is wanted, not '" token "'")
    } else if (state == "comma") {
        if (token != ",") fail("',' is wanted after '" property "'")
        state = "module"
    }
}
BEGIN { state = "top" }
FNR == 1 {
    if (state != "top") fail("a file before ends within a module")
    folder = FILENAME
    if (!sub(/\/[^\/]*$/, "", folder)) folder = "."
}
{
    sub(/\/\/.*/, "")
    while ($0 ~ /[^ \t]/) { next_token(); step() }
}
END { if (!failed && state != "top") fail("the file ends within a module") }
