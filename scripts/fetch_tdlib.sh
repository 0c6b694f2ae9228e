#!/usr/bin/env bash
# Fetches the pinned prebuilt TDLib (libtdjson.so from the npm package
# @prebuilt-tdlib/linux-x64-glibc; glibc 2.17 or later) into the user's cache:
#   ${XDG_CACHE_HOME:-$HOME/.cache}/vexa/tdlib/<version>/libtdjson.so
# The build links it beside td_backend. Node.js is needed only here, never at
# run time. Without it td_backend runs the demo engine and the TDLib tests skip.
set -euo pipefail
cd "$(dirname "$0")/.."

version=$(head -n1 scripts/tdlib-version)
# The package's published sha512 integrity, so a changed tarball is refused.
integrity="ILSNFbjP/gRWNc0bTtyTOX1RW854vaUcSpc6GtXJQp7Hgwr/+m1GbzhU4hry4yeRk02EfsmqDaBQVdXSjBXgZg=="
dest="${XDG_CACHE_HOME:-$HOME/.cache}/vexa/tdlib/$version"

if [ -s "$dest/libtdjson.so" ]; then
  exit 0
fi
if ! command -v npm >/dev/null; then
  echo "fetch_tdlib: npm is missing; the TDLib engine and its tests are unavailable" >&2
  exit 1
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
if ! (cd "$work" && npm pack --silent "@prebuilt-tdlib/linux-x64-glibc@$version" >/dev/null 2>npm.err); then
  echo "fetch_tdlib: npm pack failed: $(tail -n 3 "$work/npm.err" 2>/dev/null)" >&2
  exit 1
fi
tgz=$(ls "$work"/*.tgz)
got=$(openssl dgst -sha512 -binary "$tgz" | base64 -w0)
if [ "$got" != "$integrity" ]; then
  echo "fetch_tdlib: the package's checksum differs from the pinned one; not used" >&2
  exit 1
fi
tar -xzf "$tgz" -C "$work" package/libtdjson.so
mkdir -p "$dest"
mv "$work/package/libtdjson.so" "$dest/libtdjson.so.part"
mv "$dest/libtdjson.so.part" "$dest/libtdjson.so"
echo "fetch_tdlib: TDLib $version in $dest"
