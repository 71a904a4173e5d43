# shellcheck shell=bash
# For the scripts beside it, which set `build` to a build tree and `work` to the current directory.

# 50 directories of 100 files of 100 KB, half of them random and half of them text.
make_resources() {
  local directory
  mkdir resources
  head -c 256000000 /dev/urandom | split -b 102400 -a 4 --numeric-suffixes=0 - resources/
  head -c 192000000 /dev/urandom | base64 -w 0 | tr "A-Za-m" "x" |
    split -b 102400 -a 4 --numeric-suffixes=2500 - resources/
  for directory in $(seq -w 0 49); do
    mkdir "resources/$directory"
    mv "resources/$directory"?? "resources/$directory/"
  done
}

# make_version VERSION: builds the application, whose program creates a file when it starts.
make_version() {
  local contents="$1/Quorin Ostreval.app/Contents"
  mkdir -p "$contents/MacOS"
  cp -a resources "$contents/Resources"
  cat > "$contents/Info.plist" <<PLIST
<plist version="1.0"><dict>
<key>CFBundleIdentifier</key><string>com.example.quorin-ostreval</string>
<key>CFBundleExecutable</key><string>app</string>
<key>CFBundleShortVersionString</key><string>$1</string><key>CFBundleVersion</key><string>$1</string>
</dict></plist>
PLIST
  printf '#!/bin/sh\ntouch "%s/started"\n' "$work" > "$contents/MacOS/app"
  chmod 755 "$contents/MacOS/app"
  "$build/tools/sign_bundle/sign_bundle" sign "$1/Quorin Ostreval.app" --chain chain --identifier com.example.quorin-ostreval
}

# Makes the installed application in 1, and the image master.dmg of the next version, both signed below chain/root.pem.
make_versions() {
  "$build/tools/sign_bundle/sign_bundle" make-chain chain --team QS7TEAM123 --keys ec
  make_resources
  make_version 1
  make_version 2
  rm -r resources
  "$build/bin/make_disk_image" 2 "Quorin Ostreval" master.dmg
}
