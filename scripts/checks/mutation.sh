#!/usr/bin/env bash
# Changes the product in one place at a time - an operator, a constant, a condition, a text, a statement that
# is left out, a lock, a notification - and runs the tests on each of these mutants until one fails. Fails
# itself when fewer than 95 of 100 mutants that compile are noticed, or when one that is not is missing in
# verify/mutation/equivalent.txt, where each has its reason.
#
#   scripts/checks/mutation.sh [--jobs N] [--only FILE]... [--sample N [--seed S]] [--again STATUS]... [--record]
#                       [--report | --list]
#
# It can be interrupted, and goes on where it was: what it knows stands in build/mutation/results.jsonl, and
# counts as long as the mutated file is the same. After a change of the tests, "--again survived" runs what
# survived before, and "--record" tells it which lines they execute now.
#
# A mutant's change is compiled into the product alone: the tests keep the headers as they are, and call the
# product's inline functions where both have them. Tests that take long are left out, and of the others those
# are run that execute the changed line; the random operations of verify/stress come last. What fails or hangs
# must do so twice. "refused" is what clang's check of the lock discipline does not let pass, "same code" what
# makes no difference to the optimiser.
#
# For Linux.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
scripts/install.sh mutation
exec /usr/bin/python3 verify/mutation/main.py "$@"
