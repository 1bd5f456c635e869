/* A module of the toolkit, as small as one can be. */
#if defined(_WIN32)
#define EXPORTED __declspec(dllexport)
#else
#define EXPORTED __attribute__((visibility("default")))
#endif

EXPORTED int moduleAnswer(void);
EXPORTED int moduleDouble(int number);

int moduleAnswer(void) { return 42; }
int moduleDouble(int number) { return 2 * number; }

#if !defined(_WIN32)
#include <stdlib.h>

/* While it is loaded, it calls the function whose address the program has put into the environment. */
__attribute__((constructor)) static void loaded(void)
{
    const char* const hook = getenv("MODULE_HOOK");
    if (hook != NULL) ((void (*)(void))strtoull(hook, NULL, 16))();
}
#endif
