/* Prints which build of nkpac is loaded and which code path it chose. */
#include <nkpac.h>
#include <stdio.h>

int main(void) {
    const nkpLibraryVersion* v = nkpacGetLibVersion();
    printf("%s %s, built %s, code path %s\n", v->name, v->version, v->buildDate, v->targetCpu);
    return 0;
}
