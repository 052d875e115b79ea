# The packages that the programs and the library need, with the oldest version in Debian 12; as dpkg-shlibdeps finds them.
set(libc "libc6 (>= 2.34)")
set(libgcc "libgcc-s1 (>= 3.5)")
set(libglib "libglib2.0-0 (>= 2.37.3)")
set(liblog4cplus "liblog4cplus-2.0.5 (>= 2.0.8)")
set(libqtcore "libqt5core5a (>= 5.15.1)")
set(libssl "libssl3 (>= 3.0.0)")
set(libstdcxx "libstdc++6 (>= 12)")
set(libumockdev "libumockdev0 (>= 0.17)")
