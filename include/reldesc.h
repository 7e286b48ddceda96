/* Release descriptors: small text files that describe a software release.
 *
 * One "KEY=value" pair per line; blank lines and lines starting with '#' are
 * ignored, white space around key and value is dropped. Keys in use:
 *   SW_VERSION  the release's version text, e.g. 4.2(1a)   (required)
 *   NAME        product name of the release
 *   BUILD       build identifier
 *   DATE        build date
 * Unknown keys are kept for other readers and ignored here. */
#ifndef PLAT_RELDESC_H
#define PLAT_RELDESC_H

#ifdef __cplusplus
extern "C" {
#endif

/* The SW_VERSION text of the descriptor file at path, or null when the file
 * cannot be read or holds no SW_VERSION. The text lives in a per-thread
 * buffer until the next call; do not free it. */
char *reldesc_sw_ver_file_get(const char *path);

#ifdef __cplusplus
}
#endif

#endif
