#!/usr/bin/env bash
# Runs the Python module's tests with pytest over the built module.
# usage: run_pytest.sh PYTHON MODULE_DIR FLAIRIZE_COMMAND TEST_DIR
# Exits 77 (skipped) where NumPy or pytest is missing for that interpreter.
set -u
python=$1 module_dir=$2 command=$3 test_dir=$4
for module in numpy pytest; do
  if ! "$python" -c "import $module" 2>/dev/null; then
    echo "python_module: $python has no $module (Debian package python3-$module); skipped"
    exit 77
  fi
done
export PYTHONPATH="$module_dir${PYTHONPATH:+:$PYTHONPATH}" FLAIRIZE_COMMAND="$command"
exec "$python" -m pytest -q -p no:cacheprovider "$test_dir"
