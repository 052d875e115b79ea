# The packages that the programs and the library need, with the oldest version in Debian 13; as dpkg-shlibdeps finds them.
set(libc "libc6 (>= 2.38)")
set(libgcc "libgcc-s1 (>= 3.5)")
set(libglib "libglib2.0-0t64 (>= 2.37.3)")
set(liblog4cplus "liblog4cplus-2.0.5t64 (>= 2.0.8)")
set(libqtcore "libqt5core5t64 (>= 5.15.1)")
set(libssl "libssl3t64 (>= 3.0.0)")
set(libstdcxx "libstdc++6 (>= 14)")
set(libumockdev "libumockdev0 (>= 0.17)")
