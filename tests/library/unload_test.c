/* A host that unloads the library and goes on logging, with the identity that the library set. */

#include <dlfcn.h>
#include <stdio.h>
#include <syslog.h>

int main(int count, char** arguments) {
    void* const library = count == 2 ? dlopen(arguments[1], RTLD_NOW) : NULL;
    if (library == NULL)
        return fprintf(stderr, "%s\n", dlerror());
    int (*initialize)(int);
    *(void**)&initialize = dlsym(library, "initialize");
    if (initialize == NULL || initialize(0) != 1 || dlclose(library) != 0)
        return 1;
    syslog(LOG_DEBUG, "the library is unloaded");
    return 0;
}
