# shellcheck shell=bash
# What the scripts share; sourced by them. It brings them to the top of the tree, with everything installed.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# The system's own tools, which bootstrap installs, before any others of the same name.
export PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin:$PATH LC_ALL=C.UTF-8
scripts/bootstrap

jobs=$(nproc)
export CMAKE_BUILD_PARALLEL_LEVEL=$jobs CTEST_PARALLEL_LEVEL=$jobs
export CMAKE_CXX_COMPILER_LAUNCHER=ccache CCACHE_NOHASHDIR=1
