# Shared part of the tool's script tests, sourced after `tool` is set: a
# scratch folder to run in, and the checks.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
failures=0

fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# expect CODE PATTERN-ON-STDOUT+STDERR -- ARGS...: runs the tool, checks its
# exit code and its output, and prints the output.
expect() {
  local code=$1 pattern=$2; shift 3
  local out rc
  out=$("$tool" "$@" 2>&1); rc=$?
  [ "$rc" -eq "$code" ] || fail "cantrix $*: exit $rc, wanted $code; output: $out"
  grep -qE -- "$pattern" <<<"$out" || fail "cantrix $*: output lacks /$pattern/: $out"
  printf '%s\n' "$out"
}

# The script's verdict.
finish() {
  if [ "$failures" -ne 0 ]; then
    echo "$failures check(s) failed"
    exit 1
  fi
  echo "all checks passed"
}
