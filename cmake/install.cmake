# install: header, library, CMake package, pkg-config file, tools and their man pages.
