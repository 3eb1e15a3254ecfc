#!/bin/sh
# Runs a GoogleTest program through the command before it (wine-run.sh and
# its arguments), for ctest:
#   gtest-list.sh COMMAND... PROGRAM [ARGS...]
# The Windows C runtime ends the lines of the program's test list with
# CR LF, and ctest's discovery would keep the CR in every test name, so the
# list goes out with LF alone. Test runs pass through untouched.
case " $* " in
  *" --gtest_list_tests "*)
    list=$("$@")
    status=$?
    printf '%s\n' "$list" | tr -d '\r'
    exit $status
    ;;
esac
exec "$@"
