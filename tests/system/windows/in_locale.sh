#!/bin/sh
# Runs a command with this system's characters and those of Wine's code page, and with the user's region, as asked for.
#   in_locale.sh FOLDER CHARACTERS REGION COMMAND...: such as ja_JP ja_JP; FOLDER is where such locales are made
set -eu
folder=$1 characters=$2 region=$3
shift 3
mkdir -p "$folder"
for name in "$characters" "$region"; do
  [ -d "$folder/$name.UTF-8" ] || localedef -i "$name" -f UTF-8 "$folder/$name.UTF-8"
done
unset LC_ALL
LOCPATH=$folder LANG=$region.UTF-8 LC_CTYPE=$characters.UTF-8 exec "$@"
