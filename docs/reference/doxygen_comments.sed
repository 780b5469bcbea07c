# Plain C comments as doxygen's: of the library, of what follows, and of the member in front. Their backslashes and angle
# brackets are text.
/^\/\*$\|^ \*/ {
  s/[\\<>]/\\&/g
}
1s|^/\*$|/** @mainpage|
1,/\*\/$/s|^ \* \([A-Z][a-z]*\( [a-z]*\)\{0,1\}\)\. | * <b>\1.</b> |
s|^/\*\( .*\)\{0,1\}$|/**\1|
s|^\( *[A-Za-z_#].*\)/\* \(.*\*/\)$|\1/**< \2|
