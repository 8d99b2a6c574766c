#!/usr/bin/env bash
# The browser viewer's stage: builds the page (tools/build-web.sh), installs
# the pinned puppeteer-core (npm ci in web/, no browser download) and runs the
# browser tests (web/test) in Debian's headless chromium against the release
# build's pelcast, pelcast-web-helper and zpak, which make, decode and
# describe the test files. Screenshots go to build/web-test/screenshots/;
# PELCAST_DOC_SCREENSHOTS=1 also writes them into docs/images/.
set -euo pipefail
cd "$(dirname "$0")/.."

for program in build/release/pelcast build/release/web/pelcast-web-helper build/release/tools/zpak/zpak; do
  if [ ! -x "$program" ]; then
    echo "test-web: $program is missing: build the release preset first" >&2
    exit 1
  fi
done

tools/build-web.sh

# npm ci deletes node_modules and installs the locked packages again: only
# when the lock file differs from the one last installed.
stamp=web/node_modules/.pelcast-installed-lock
if ! cmp -s web/package-lock.json "$stamp" 2>/dev/null; then
  (cd web && PUPPETEER_SKIP_DOWNLOAD=1 npm ci --no-audit --no-fund --loglevel=error)
  cp web/package-lock.json "$stamp"
fi

cd web
node --test test/viewer.test.mjs
