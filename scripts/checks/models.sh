#!/usr/bin/env bash
# Checks every state of the models of the pool's protocol with spin, and the stop handshake under the C++ memory model.
# Fails if a model does not hold, if a variant with a mistake passes, or if a model names a function that the library no
# longer has. spin's own output is left in build/models.
#
# For Linux. See verify/models/README.md.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$root"
need models
mkdir -p build/models

echo "The checker of the memory model against textbook programs"
/usr/bin/python3 -B verify/models/handshake/test_memory_model.py --quiet

echo "The stop handshake"
/usr/bin/python3 -B verify/models/handshake/check_handshake.py | tee build/models/handshake.txt
record_figure "Stop handshake" "$(head -n 1 build/models/handshake.txt | tr -s ' ')"

echo "The registry's era"
/usr/bin/python3 -B verify/models/handshake/check_era.py

echo "The models"
/usr/bin/python3 -B verify/models/check_models.py | tee build/models/report.txt
record_figure "Models" "$(tail -n 1 build/models/report.txt)"
