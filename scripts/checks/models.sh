#!/usr/bin/env bash
# Checks the models of the pool's protocol with spin, every state of each, and the stop handshake under the C++ memory
# model. Fails when a model does not hold, when a broken variant is not refuted, or when a model names a function that
# the library does not have. What spin's searches say is left in build/models.
#
# For Linux. See verify/models/README.md.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
scripts/install.sh models

echo "The checker of the memory model against textbook programs"
/usr/bin/python3 -B verify/models/handshake/test_memory_model.py --quiet

echo "The stop handshake"
/usr/bin/python3 -B verify/models/handshake/check_handshake.py

echo "The models"
/usr/bin/python3 -B verify/models/check_models.py
