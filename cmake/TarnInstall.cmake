# The installed package: three shared libraries, their public headers, a CMake package, pkg-config.
