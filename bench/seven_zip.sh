# shellcheck shell=sh
# For the scripts beside it. find_seven_zip prints the path of the 7-Zip that hdiutil would use: the first program, under
# the names that releases of Debian give it, of release 22 or newer, which is the first that reads APFS.
find_seven_zip() {
  for program in /usr/bin/7zz /usr/bin/7z; do
    # Its first line is such as "7-Zip (z) 22.01 (x64) : Copyright".
    release=$({ "$program" 2>/dev/null || true; } |
      awk '$1 == "7-Zip" { for (i = 2; i <= NF; ++i) if ($i ~ /^[0-9]+\./) { print int($i); exit } }')
    if [ "${release:-0}" -ge 22 ]; then
      echo "$program"
      return
    fi
  done
  echo "7-Zip 22 or newer is not installed" >&2
  return 1
}
