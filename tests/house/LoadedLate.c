// Loads the library as a scripting language does: into a program that runs already, where little room is left
// for the variables that threads have at a fixed place. And closes it while a thread that used it goes on: the
// library is called when that thread ends.

#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <pthread.h>
#include <semaphore.h>
#include <stdio.h>
#include <stdlib.h>

typedef void** find_addresses(char const* text, int* count);
typedef void destroy_address(void* address);

static find_addresses* find;
static destroy_address* destroy;
static sem_t used, closed;

static void* use(void* unused) {
    int count = 0;
    void** const found = find("John <john@mail.example>, ann@mail.example", &count);
    if (found) {
        for (int at = 0; at < count; ++at) destroy(found[at]);
    }
    free(found);
    sem_post(&used);
    sem_wait(&closed);
    return found && count == 2 ? &used : unused;
}

// Whether the library says itself that it is there for good. g++ makes some libraries stay for other reasons, which
// clang and the next change do not.
static int isMadeToStay(struct link_map const* library) {
    for (ElfW(Dyn) const* entry = library->l_ld; entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag == DT_FLAGS_1 && (entry->d_un.d_val & DF_1_NODELETE) != 0) return 1;
    }
    return 0;
}

int main(int argc, char** argv) {
    void* const library = argc == 2 ? dlopen(argv[1], RTLD_NOW) : NULL;
    if (!library) {
        fprintf(stderr, "%s\n", argc == 2 ? dlerror() : "the library's path is missing");
        return EXIT_FAILURE;
    }
    if (!isMadeToStay(library)) {
        fprintf(stderr, "The library lets itself be removed.\n");
        return EXIT_FAILURE;
    }
    *(void**)&find = dlsym(library, "quill_emailaddress_find");
    *(void**)&destroy = dlsym(library, "quill_emailaddress_destroy");
    sem_init(&used, 0, 0);
    sem_init(&closed, 0, 0);
    pthread_t thread;
    if (!find || !destroy || pthread_create(&thread, NULL, use, NULL) != 0) return EXIT_FAILURE;
    sem_wait(&used);
    if (dlclose(library) != 0) return EXIT_FAILURE;
    sem_post(&closed);
    void* result = NULL;
    pthread_join(thread, &result);
    return result ? EXIT_SUCCESS : EXIT_FAILURE;
}
