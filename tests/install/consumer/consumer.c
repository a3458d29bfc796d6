/* A consumer of the installed library: C99, public header only. */
#include <nkpac.h>
#include <stdio.h>
#include <string.h>

int main(void) {
    const nkpLibraryVersion* v = nkpacGetLibVersion();
    if (!v || strncmp(v->name, "nkpAC ", 6) != 0) return 1;
    printf("consumer linked %s %s\n", v->name, v->version);
    return 0;
}
