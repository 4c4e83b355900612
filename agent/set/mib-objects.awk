# Makes the table of agent/set/Objects.cpp from MIB modules: what can be read or set, with its
# number, rows, type, limits and words. Whatever it does not understand ends the build.
#
#     awk -f mib-objects.awk MODULE...    what is used before what uses it

{
    line = $0
    if (!quoted)
        sub(/--.*/, "", line)
    # Texts are skipped; a text may go over many lines.
    while (match(line, /"/)) {
        text = text (quoted ? "" : substr(line, 1, RSTART - 1)) " "
        line = substr(line, RSTART + 1)
        quoted = !quoted
    }
    text = text (quoted ? "" : line) " "
}

function fail(why) {
    print "mib-objects: " why >"/dev/stderr"
    failed = 1
    exit 1
}

# What follows SYNTAX at a place: fills type, least, most and words.
function syntax(at,    name) {
    name = token[at++]
    if (name == "OCTET")
        name = name " " token[at++]
    if (!(name in asnOf))
        fail("unknown type " name)
    type = asnOf[name]; least = leastOf[name]; most = mostOf[name]; words = wordsOf[name]
    if (token[at] == "{") {
        for (words = ""; token[at] != "}"; at += 5)
            words = words (words ? ", " : "") "{" token[at + 3] ", \"" token[at + 1] "\"}"
    } else if (token[at] == "(") {
        while (token[at] == "(" || token[at] == "SIZE")
            ++at
        if (split(token[at], limit, /\.\./) != 2)
            fail("no range of " name ": " token[at])
        least = limit[1]; most = limit[2]
    }
}

# The number of what { ... } at a place names, and its last part.
function number(at,    id) {
    if (!(token[at + 1] in idOf))
        fail("unknown name " token[at + 1])
    id = idOf[token[at + 1]]
    for (at += 2; token[at] != "}"; ++at)
        if (token[at] ~ /^[0-9]+$/)
            id = id ", " token[at]
    return id
}

function define(name, asn, from, to) { asnOf[name] = asn; leastOf[name] = from; mostOf[name] = to }

END {
    if (failed)
        exit 1
    define("INTEGER", "ASN_INTEGER", "-2147483647", "2147483647")
    define("Integer32", "ASN_INTEGER", "-2147483647", "2147483647")
    define("Unsigned32", "ASN_GAUGE", 0, "4294967295")
    define("Gauge32", "ASN_GAUGE", 0, "4294967295")
    define("Counter32", "ASN_COUNTER", 0, "4294967295")
    define("OCTET STRING", "ASN_OCTET_STR", 0, 65535)
    idOf["iso"] = "1"
    gsub(/[{}(),;]/, " & ", text)
    count = split(text, token, /[ \t]+/)
    for (i = 1; i <= count; ++i) {
        if (token[i + 1] == "::=" && token[i + 2] == "TEXTUAL-CONVENTION") {
            name = token[i]
            while (token[++i] != "SYNTAX")
                ;
            syntax(i + 1)
            define(name, type, least, most)
            wordsOf[name] = words
        } else if (token[i + 1] == "OBJECT" && token[i + 2] == "IDENTIFIER" ||
                   token[i + 1] ~ /^(MODULE-IDENTITY|OBJECT-TYPE)$/ && token[i + 2] ~ /^[A-Z-]+$/) {
            name = token[i]
            object = token[i + 1] == "OBJECT-TYPE"
            access = type = index_ = ""
            while (token[++i] != "::=" && i < count) {
                if (object && token[i] == "SYNTAX" && token[i + 1] != "SEQUENCE" && token[i + 1] !~ /Entry$/)
                    syntax(i + 1)
                if (token[i] == "MAX-ACCESS")
                    access = token[i + 1]
                if (token[i] == "INDEX")
                    index_ = token[i + 2]
            }
            if (token[i + 1] == "MACRO" || token[i + 1] != "{")
                continue
            idOf[name] = number(i + 1)
            mostOfObject[name] = most
            parent = token[i + 2]
            if (index_ != "")
                indexOf[name] = index_
            if (access !~ /^read-/)
                continue
            rows[++made] = parent in indexOf ? indexOf[parent] : ""
            row[made] = sprintf("{\"%s\", {%s}, ", name, idOf[name]) "%s" \
                sprintf(", %s, %s, %s, {%s}, %s},", type, least, most, words,
                        access == "read-write" ? "true" : "false")
        }
    }
    if (!made)
        fail("no objects")
    for (i = 1; i <= made; ++i)
        printf row[i] "\n", rows[i] == "" ? 0 : mostOfObject[rows[i]]
}
