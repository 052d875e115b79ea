// Loads the library named by the argument, lazily, and reports whether that succeeded.

#include <dlfcn.h>
#include <iostream>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: " << argv[0] << " LIBRARY\n";
        return 2;
    }
    if (dlopen(argv[1], RTLD_LAZY) == nullptr) {
        std::cout << "refused: " << dlerror() << '\n';
        return 1;
    }
    std::cout << "loaded\n";
    return 0;
}
