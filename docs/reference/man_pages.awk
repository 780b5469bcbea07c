# The manual pages of section 3 from the comments of api/media_adapter.h: one for the library, one for each function.
#   awk -f man_pages.awk -v folder=FOLDER -v date="November 22, 2026" media_adapter.h
# A comment's paragraph that begins with "Title. " is a subsection, with "name: " one on arguments; "Status: " and
# "Returns " begin what a function returns.

function escaped(text) {
  gsub(/\\/, "\\e", text)
  return text ~ /^[.']/ ? "\\\\&" text : text
}

function start(page, name, summary) {
  printf ".\\\" Made from media_adapter.h.\n.Dd %s\n.Dt %s 3\n.Os\n.Sh NAME\n.Nm %s\n.Nd %s\n", date, toupper(name), name,
    summary > page
  printf ".Sh LIBRARY\nlibmediaadapter, -lmediaadapter\n.Sh SYNOPSIS\n.In media_adapter.h\n" > page
}

# "Finds the devices on the network: listens" as "finds the devices on the network"
function summary_of(paragraph) {
  sub(/[.:;]( .*)?$/, "", paragraph)
  gsub(/"/, "\\(dq", paragraph)
  return tolower(substr(paragraph, 1, 1)) substr(paragraph, 2)
}

function put_paragraph(page, text, names) {
  if (match(text, /^[A-Z][a-z]+( [a-z]+)?\. /)) {
    printf ".Ss \\&%s\n%s\n", substr(text, 1, RLENGTH - 2), escaped(substr(text, RLENGTH + 1)) > page
  } else if (text !~ /^(Status|Returns)/ && match(text, /^[a-z][A-Za-z]*(, [a-z][A-Za-z]*)*: /)) {
    names = substr(text, 1, RLENGTH - 2)
    gsub(/,/, " ,", names)
    printf ".Pp\n.Fa %s :\n%s\n", names, escaped(substr(text, RLENGTH + 1)) > page
  } else {
    printf ".Pp\n%s\n", escaped(text) > page
  }
}

function put_declaration(page, type, name, arguments, i, count, each) {
  count = split(arguments, each, / *, */)
  printf ".Ft \"%s\"\n.Fo %s\n", type, name > page
  for (i = 1; i <= count; ++i) printf ".Fa \"%s\"\n", each[i] > page
  printf ".Fc\n" > page
}

function put_record_return(page) {
  printf ".Sh RETURN VALUES\nThe address of the library's record, see\n.Xr media_adapter 3 .\n" > page
}

# Of `declaration`, which the comment's paragraphs describe.
function put_function(declaration, type, name, arguments, page, i, isReturn) {
  gsub(/[ \n]+/, " ", declaration)
  sub(/^MEDIA_ADAPTER_EXPORT /, "", declaration)
  sub(/MEDIA_ADAPTER_CALL /, "", declaration)
  match(declaration, /API_[A-Za-z]+/)
  type = substr(declaration, 1, RSTART - 1)
  name = substr(declaration, RSTART, RLENGTH)
  arguments = substr(declaration, RSTART + RLENGTH + 1)
  gsub(/^ |\);.*/, "", arguments)
  sub(/ $/, "", type)

  types[name] = type
  page = folder "/" name ".3"
  start(page, name, summary_of(paragraphs[1]))
  put_declaration(page, type, name, arguments)
  printf ".Sh DESCRIPTION\n" > page
  for (i = 1; i <= paragraphCount; ++i) {
    isReturn = paragraphs[i] ~ /^(Status: |Returns )/
    if (isReturn && type ~ /\*$/) {
      put_record_return(page)
      type = ""
    } else if (isReturn) {
      printf ".Sh RETURN VALUES\n" > page
    }
    put_paragraph(page, paragraphs[i])
  }
  if (type ~ /\*$/) put_record_return(page)
  printf ".Sh SEE ALSO\n.Xr media_adapter 3\n" > page
  close(page)

  functions[++functionCount] = name
  summaries[name] = summary_of(paragraphs[1])
  argumentsOf[name] = arguments
}

function put_library(page, i, name) {
  page = folder "/media_adapter.3"
  sub(/^media_adapter\.h - /, "", headParagraphs[1])
  sub(/\.$/, "", headParagraphs[1])
  start(page, "media_adapter", headParagraphs[1])
  for (i = 1; i <= functionCount; ++i) put_declaration(page, types[functions[i]], functions[i], argumentsOf[functions[i]])
  printf ".Sh DESCRIPTION\n" > page
  for (i = 2; i <= headCount; ++i) put_paragraph(page, headParagraphs[i])
  printf ".Ss Functions\n.Bl -tag -width Ds\n" > page
  for (i = 1; i <= functionCount; ++i) {
    name = functions[i]
    printf ".It Xr %s 3\n%s.\n", name, toupper(substr(summaries[name], 1, 1)) substr(summaries[name], 2) > page
  }
  printf ".El\n.Ss Values and records\n.Bd -literal\n%s.Ed\n.Sh SEE ALSO\n.Xr media-adapter 1 ,\n.Xr media-adapter-sim 1\n", records > page
  close(page)
}

function end_comment(i) {
  for (i = 1; i <= paragraphCount && !headCount; ++i) headParagraphs[i] = paragraphs[i]
  if (!headCount) headCount = paragraphCount
}

function add_to_comment(line) {
  sub(/ *[*]\/ *$/, "", line)
  sub(/^ *[*]? */, "", line)
  if (line == "") {
    isNewParagraph = 1
  } else if (isNewParagraph) {
    paragraphs[++paragraphCount] = line
    isNewParagraph = 0
  } else {
    paragraphs[paragraphCount] = paragraphs[paragraphCount] " " line
  }
}

inDeclaration { declaration = declaration " " $0 }
/^MEDIA_ADAPTER_EXPORT/ { declaration = $0; inDeclaration = 1 }
inDeclaration && /;$/ { put_function(declaration); inDeclaration = 0 }

# Statuses, limits and records, as they stand there.
/^#define MEDIA_ADAPTER_(VERSION_|MAX_|MESSAGE_SIZE|ELEMENT)/ { records = records escaped($0) "\n" }
/^(enum|typedef struct) / { inRecord = 1; records = records "\n" }
inRecord { records = records escaped($0) "\n" }
/^}/ { inRecord = 0 }

/^\/\*/ { inComment = 1; paragraphCount = 0; isNewParagraph = 1; sub(/^\/\*/, "") }
inComment { isLast = /\*\/ *$/; add_to_comment($0) }
inComment && isLast { end_comment(); inComment = 0 }

END { put_library() }
