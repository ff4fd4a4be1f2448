#!/usr/bin/env bash
# Checks that the README's Quick start shows exactly what the quickstart
# regression test gives: the first ```sql block after the "## Quick start"
# heading must equal the test's expected output below its marker line
# (trailing blanks and trailing empty lines aside).
#   check_readme.sh README.md test/expected/quickstart.out
set -euo pipefail
readme=$1 expected=$2
marker="-- README.md's Quick start shows everything below this line."

# Trailing blanks off every line, trailing empty lines off the end.
tidy() { sed -e 's/[[:space:]]*$//' | sed -e ':a' -e '/^\n*$/{$d;N;ba' -e '}'; }

shown=$(awk '/^## Quick start/ { section = 1; next }
             section && /^## / { exit }
             section && !block && /^```sql$/ { block = 1; next }
             block && /^```$/ { exit }
             block { print }' "$readme" | tidy)
tested=$(awk -v marker="$marker" 'found { print } $0 == marker { found = 1 }' "$expected" | tidy)

[ -n "$shown" ] || { echo "$readme: no \`\`\`sql block under \"## Quick start\""; exit 1; }
[ -n "$tested" ] || { echo "$expected: no output below the line \"$marker\""; exit 1; }
if [ "$shown" != "$tested" ]; then
    echo "$readme's Quick start differs from $expected (< README, > test); copy the test's output into the README:"
    diff <(echo "$shown") <(echo "$tested") || true
    exit 1
fi
echo "the Quick start in $readme matches $expected"
