// Loads the library as a scripting language does: into a program that runs already, where little room is left
// for the variables that threads have at a fixed place.

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>

typedef void** find_addresses(char const* text, int* count);

int main(int argc, char** argv) {
    void* const library = argc == 2 ? dlopen(argv[1], RTLD_NOW) : NULL;
    if (!library) {
        fprintf(stderr, "%s\n", argc == 2 ? dlerror() : "the library's path is missing");
        return EXIT_FAILURE;
    }
    find_addresses* find = NULL;
    *(void**)&find = dlsym(library, "quill_emailaddress_find");
    int count = 0;
    return find && find("John <john@mail.example>, ann@mail.example", &count) && count == 2 ? EXIT_SUCCESS
                                                                                            : EXIT_FAILURE;
}
