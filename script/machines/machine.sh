# shellcheck shell=bash
# Sourced after common.sh with the name of a machine. Defines the names and folders of the machine, and
# the functions that prepare this computer to build and to run programs for it.

case ${1:-} in
  aarch64) debian_name=arm64 ;;
  s390x) debian_name=s390x ;;
  *) fail "unknown machine '${1:-}'; use aarch64 or s390x" ;;
esac
machine=$1
folder=$PWD/build/machines/$machine
root=$folder/root # unpacked Debian packages of the machine

find_emulator() { command -v "qemu-$machine" || command -v "qemu-$machine-static"; }

# Installs the cross compiler and the emulator, if they are missing.
install_tools() {
  local missing=()
  command -v "$machine-linux-gnu-g++" >/dev/null || missing+=("g++-$machine-linux-gnu")
  find_emulator >/dev/null || missing+=(qemu-user)
  if ((${#missing[@]})); then
    install_packages --no-install-recommends "${missing[@]}"
  fi
  emulator=$(find_emulator)
}

# is_made NAME INPUTS: whether NAME was made from these inputs. mark_made NAME INPUTS records it.
is_made() { [[ -e $folder/$1 && -f $folder/$1.made && $(<"$folder/$1.made") == "$2" ]]; }
mark_made() { printf '%s\n' "$2" >"$folder/$1.made"; }

# Runs apt-get with the settings that configure_apt made.
apt_get() { APT_CONFIG=$folder/apt/apt.conf apt-get -qq "$@" </dev/null; }

# configure_apt SETTING...: makes settings of apt with all files in $folder/apt, so that apt neither
# reads nor changes what is installed on this computer: for apt no package is installed.
configure_apt() {
  local apt=$folder/apt
  mkdir -p "$apt"/{lists,archives}/partial
  : >"$apt/status"
  cat >"$apt/apt.conf" <<CONF
APT::Install-Recommends "false";
APT::Sandbox::User "";
Acquire::Languages "none";
Dir::State "$apt";
Dir::State::lists "lists";
Dir::State::status "$apt/status";
Dir::Cache "$apt";
Dir::Cache::archives "archives";
$(printf '%s;\n' "$@")
CONF
}

# download_packages PACKAGE...: into $folder/apt/archives, with the packages that they need.
download_packages() {
  local apt=$folder/apt
  rm -rf "$apt"
  # Use the archives of Debian that this computer uses. The origin of an archive is known after an
  # update.
  configure_apt
  apt_get update
  apt_get indextargets --format "deb \$(REPO_URI) \$(RELEASE) \$(COMPONENT)" \
    'Identifier: Packages' 'Origin: Debian' | sort -u >"$apt/sources.list"
  configure_apt "APT::Architecture \"$debian_name\"" "APT::Architectures \"$debian_name\"" \
    "Dir::Etc::sourcelist \"$apt/sources.list\"" 'Dir::Etc::sourceparts "/dev/null"'
  apt_get update
  apt_get install -y --download-only "$@"
}

# Unpacks Python, its headers and all libraries that it needs to $root, and puts the headers into
# $folder/include.
make_root() {
  local packages=(python3 libpython3-dev libstdc++6) package
  if is_made root "${packages[*]}"; then
    return
  fi
  say "unpacking Debian packages of $machine in $root"
  rm -rf "$root" "$folder/include"
  download_packages "${packages[@]}"
  # As on an installed Debian; some packages still have files in /lib.
  local name
  for name in bin sbin lib; do
    mkdir -p "$root/usr/$name"
    ln -s "usr/$name" "$root/$name"
  done
  for package in "$folder"/apt/archives/*.deb; do
    dpkg-deb --fsys-tarfile "$package" | tar -x --keep-directory-symlink -C "$root"
  done
  # Debian's pyconfig.h includes that of the machine from a folder which would also offer the headers
  # of the C library; here it is the machine's own.
  local python
  python=$(python_of_root)
  cp -r "$root/usr/include/$python" "$folder/include"
  cp "$root/usr/include/$machine-linux-gnu/$python/pyconfig.h" "$folder/include"
  compile_bytecode "$root/usr/lib/$python"
  mark_made root "${packages[*]}"
}

# compile_bytecode FOLDER: makes the bytecode of Python files for the interpreter of $root. It is the
# same for all machines; without this the emulator would make it, slowly.
compile_bytecode() {
  local python
  python=$(python_of_root)
  if command -v "$python" >/dev/null; then
    "$python" -W ignore -m compileall -qq "$1" || true # the standard library has files with intended mistakes
  fi
}

# Prints the name of the interpreter of $root, such as python3.11.
python_of_root() { readlink "$root/usr/bin/python3"; }

# make_environment NAME: a fresh virtual environment of the machine, $folder/NAME. Its bin/python is a
# script that runs the interpreter in the emulator, so that this also works for child processes.
make_environment() {
  local environment=$folder/$1 python
  python=$(python_of_root)
  rm -rf "$environment"
  mkdir -p "$environment/bin" "$environment/lib/$python/site-packages"
  printf '%s\n' "home = $root/usr/bin" "include-system-site-packages = false" >"$environment/pyvenv.cfg"
  cat >"$environment/bin/python" <<SCRIPT
#!/bin/sh
exec '$emulator' -L '$root' -0 "\$0" '$root/usr/bin/$python' "\$@"
SCRIPT
  chmod +x "$environment/bin/python"
}

# install_for_machine NAME PIP_OPTION...: installs wheels of the machine into the environment
# $folder/NAME. The pip of this computer does it, because in the emulator it would be slow.
install_for_machine() {
  local site python
  site=$(echo "$folder/$1"/lib/*/site-packages)
  python=$(python_of_root)
  python -m pip install -qq --target "$site" --no-compile --only-binary :all: \
    --platform "manylinux_2_17_$machine" --platform "linux_$machine" \
    --python-version "${python#python}" "${@:2}"
  compile_bytecode "$site"
}

# describe_python PYTHON: its version, machine and byte order.
describe_python() {
  "$1" -P -c 'import platform, sys
print(f"CPython {platform.python_version()}, {platform.machine()}, {sys.byteorder}-endian")'
}

# Builds the wheel of the machine in $folder/wheel, with the tag linux_$machine. The native tests are
# configured, but not built.
build_wheel() {
  local boost=(/usr/lib/"$(g++ -print-multiarch)"/cmake/Boost-*)
  local options=(
    CMAKE_SYSTEM_NAME=Linux
    "CMAKE_SYSTEM_PROCESSOR=$machine"
    "CMAKE_CXX_COMPILER=$machine-linux-gnu-g++"
    "Python_INCLUDE_DIR=$folder/include"
    "Boost_DIR=${boost[0]}" # headers only, so those of this computer will do
  )
  say "building the wheel for $machine; all messages are in $folder/wheel.log"
  rm -rf "$folder/wheel"
  # The tag is that of the platform on which Python believes to run.
  if ! _PYTHON_HOST_PLATFORM=linux-$machine python -m pip wheel . -v --no-deps --no-build-isolation \
    --no-index -w "$folder/wheel" -C "build-dir=$folder/build" -C cmake.args=--preset=release \
    -C build.targets=velmarmultidimarrayforpython "${options[@]/#/-Ccmake.define.}" \
    >"$folder/wheel.log" 2>&1; then
    cat "$folder/wheel.log"
    fail "the build failed"
  fi
}

prepare_machine() {
  mkdir -p "$folder"
  install_tools
  make_root
}
