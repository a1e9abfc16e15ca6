# The header's comments are plain C ones; this marks them for Doxygen.
# A comment behind a declaration belongs to it.
s|^\(.*[;,({0-9A-Za-z_] *\)/\* |\1/**< |
# A comment on lines of its own belongs to what follows; the first one to the file.
1s|^/\*$|/** @file|
s|^/\* |/** |
# Drawings keep their columns.
s|^ \*     | *     |
