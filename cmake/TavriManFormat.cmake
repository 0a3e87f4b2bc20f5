# cmake -DPAGE=teli-grab.1 -P TavriManFormat.cmake: gives the subcommands of help2man's
# page the man page's own shape. help2man reads "Subcommands:" as plain text, so each
# command's name, summary and "Options:" or "Positionals:" heading ran into one
# paragraph; here the list becomes a section, each command a subsection, and each
# heading a paragraph of its own.
file(READ ${PAGE} text)
string(REPLACE "\n.PP\nSubcommands:\n" "\n.SH SUBCOMMANDS\n" text "${text}")
string(REGEX REPLACE "\n(\\.PP\n)?([a-z][a-z-]*)\n\\.IP\n" "\n.SS \\2\n" text "${text}")
string(REGEX REPLACE "\n(\\.IP\n)?(Options|Positionals):\n" "\n.PP\n\\\\fI\\2:\\\\fR\n" text "${text}")
file(WRITE ${PAGE} "${text}")
