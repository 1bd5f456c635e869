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
