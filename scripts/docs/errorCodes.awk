# Shows Doxygen the table of errorCodes.h as an enumeration: one documented constant per entry, X(number, name, text).
# The entries themselves are told of once, where the enumeration stands.

/^#define CU_(COMMON|LIBRARY)_ERRORS\(X\)/ { component = /COMMON/ ? 0 : 1; inTable = 1; print; next }

inTable {
    entry = entry $0
    sub(/\\$/, "", entry)
    if (entry ~ /\)[ ]*$/) {
        remember(entry)
        entry = ""
    }
    inTable = /\\$/
    print
    next
}

/CU_(COMMON|LIBRARY)_ERRORS\(CU_ERROR_CONSTANT\)/ {
    component = /COMMON/ ? 0 : 1
    for (i = 0; i < count[component]; i++) print constant[component, i]
    next
}

/^#(define|undef) CU_ERROR_CONSTANT/ { print ""; next }

{ print }

function remember(entry,    number, name, text) {
    sub(/^ *X\(/, "", entry)
    sub(/\) *$/, "", entry)
    number = substr(entry, 1, index(entry, ",") - 1)
    entry = substr(entry, index(entry, ",") + 1)
    name = substr(entry, 1, index(entry, ",") - 1)
    gsub(/ /, "", name)
    text = substr(entry, index(entry, ",") + 1)
    gsub(/^ *"?|"? *$/, "", text)
    if (text == "CU_NO_DESCRIPTION") text = "Has no description of its own; #CU_NO_DESCRIPTION stands for it."
    constant[component, count[component]++] = sprintf("    %s = %s, /**< %s */", name,
        component ? sprintf("(%d << CU_ERROR_CODE_BITS) + %d", component, number) : number + 0, text)
}
