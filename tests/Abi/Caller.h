/* A program in C that uses the kernel. Each part answers null, or the first thing that was not as promised. */
#ifndef CALLER_H
#define CALLER_H

#if defined(__cplusplus)
extern "C" {
#endif

const char* recordsSeenFromC(void);
const char* pictureMadeFromC(unsigned recordSize, int bitsPerPixel);
const char* storageKeptInC(void);
const char* refusalsSeenFromC(void);

#if defined(__cplusplus)
}
#endif

#endif
