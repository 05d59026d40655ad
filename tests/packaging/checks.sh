# Sourced by the packaging test scripts: a counted check and small predicates.
# Each script ends with `checks_summary`, which prints the counts and fails
# when any check did.

passed=0
failed=0
check() {  # check <description> <command...>: runs the command, counts the result
  local what="$1"
  shift
  "$@"
  local status=$?
  if [ "$status" -eq 0 ]; then
    passed=$((passed + 1))
  else
    failed=$((failed + 1))
    echo "FAIL: $what (exit code $status)"
  fi
}
not() { ! "$@"; }
equals() { [ "$1" = "$2" ] || { echo "  got '$1', expected '$2'"; return 1; }; }
differs() { [ "$1" != "$2" ] || { echo "  both '$1'"; return 1; }; }
checks_summary() {
  echo "$passed passed, $failed failed"
  [ "$failed" -eq 0 ]
}
