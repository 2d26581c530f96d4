# usage: check_options.sh QVVOICE SOURCE_DIR
# Every option that README and docs write in a `qvvoice ...` of theirs is one that the verb has.
set -u
command=$1 source=$2 checked=0 wrong=0
while IFS=: read -r file text; do
  text=${text//\`/}
  read -r _ verb part _ <<<"$text"
  [ "$verb" = para ] && verb="para $part"
  help=$("$command" $verb --help) || { echo "$file: no such verb: $text"; wrong=$((wrong + 1)); continue; }
  for option in $(grep -oE -- '--[a-z][a-z-]*' <<<"$text"); do
    checked=$((checked + 1))
    grep -qE -- "$option([ ,]|\$)" <<<"$help" || { echo "$file: $option is no option: $text"; wrong=$((wrong + 1)); }
  done
done < <(grep -ohHE '`qvvoice [a-z][^`]*`' "$source/README.md" "$source"/docs/*.md)
echo "$checked options, $wrong wrong"
[ "$wrong" -eq 0 ] && [ "$checked" -ge 5 ]
