#!/usr/bin/env bash
# Changes the product in one place at a time (an operator, a constant, a condition, a text, an omitted statement, a
# lock, a notification) and runs the tests on each of these mutants until one fails. Fails if the tests notice fewer
# than 95 % of the mutants that compile, or if verify/mutation/equivalent.txt gives no reason for a survivor.
#
#   scripts/checks/mutation.sh [--jobs N] [--only FILE]... [--sample N [--seed S]] [--again STATUS]... [--record]
#                              [--report | --list]
#
# An interrupted run continues where it stopped: build/mutation/results.jsonl keeps each result until the mutated
# file changes. After a change of the tests:
#
#   --again survived   runs the survivors again
#   --record           records anew which lines each test executes
#
# Only the product is compiled with the mutant. The tests keep the original headers, and call the product's inline
# functions where both have them. Long tests are left out. Of the others, those that execute the changed line run;
# the random operations of verify/stress come last. A failure or hang must occur twice. "refused" means that clang's
# lock check rejects the mutant, "same code" that the optimiser removes the difference.
#
# For Linux.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$root"
need mutation
mkdir -p build/mutation
/usr/bin/python3 verify/mutation/main.py "$@" | tee build/mutation/report.txt
noticed=$(grep '^[0-9.]* % of the mutants' build/mutation/report.txt || true)
[ -z "$noticed" ] || record_figure "Mutants" "$noticed"
