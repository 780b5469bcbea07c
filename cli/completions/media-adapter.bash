# bash completion for media-adapter. The tool itself tells what fits; of devices and their files it knows what its agent
# has found, when one runs, and never starts a search.
_media_adapter() {
  local line=${COMP_LINE:0:COMP_POINT} item prefix=
  local typed=${line##*[[:blank:]]}
  # What bash takes for the word begins behind the last of these.
  [[ $typed == *[\"\'\\]* ]] || prefix=${typed%"${typed##*[:=]}"}
  COMPREPLY=()
  while IFS=$'\t' read -r item _; do
    COMPREPLY+=("${item#"$prefix"}")
  done < <("${1/#\~/$HOME}" __complete bash "$line" 2>/dev/null)
  [[ ${COMPREPLY[*]} == *=* || $typed == -* ]] || compopt -o filenames
  [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *[/=] ]] && compopt -o nospace
  return 0
}
complete -F _media_adapter media-adapter
