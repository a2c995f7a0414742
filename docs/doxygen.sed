# doxygen.sed: shows the headers' plain comments to doxygen (its INPUT_FILTER).  Lines stay lines, so
# that its messages name the right ones.
/^ *#/b

# The inside of a class is left out: of a private class it would make a link to a list that is not there.
/^ private:$/,/^};$/{
s|^ private:$|& /** @cond */|
s|^};$|/** @endcond */ &|
}

# A title between functions is no one's description.
/^\/\* ----/b

# A table in the comment of a header stays as it is.
1,/\*\//s/^ \*   ([^ -].*|.*[^ ]   +[^ ].*)$/ *        \1/
t

# What doxygen would take for commands is text.
/\/\*|^ \*/s/[\\%<>]/\\&/g

# The first line of a header names the file.
1s|^/\* ([a-z0-9_]+\.hp?p?): |/** @file \1 |

# A comment on a line of its own describes what follows; one after code describes that code.
s|^( *)/\* |\1/** |
s|([^ ] +)/\* |\1/**< |

# Callbacks that a record has are a list.
s/^ \*   (on[A-Z][A-Za-z]*)   +/ * - \1: /

# "  name, name   text" describes parameters, "Returns" the result; result codes stay in lines.
s/^ \*   ([a-z][A-Za-z0-9]*)   +/ * @param \1 /
s/^ \*   ([a-z][A-Za-z0-9]*), ([a-z][A-Za-z0-9]*)   +/ * @param \1,\2 /
s/^ \* Returns / * @return /
s/^ \* Source: / * <br>Source: /
/^ \*/s/ {3,}([0-9]{10})/ <br>\1/g
