#pragma once

/* A stand-in for the header of the OpenSSL releases that asked the program for their locks. Written for the tests from the
 * documented signatures; the functions are defined in LegacyCrypto.cpp and record their calls. */

#ifdef __cplusplus
extern "C" {
#endif

#define CRYPTO_LOCK 1
#define CRYPTO_UNLOCK 2
#define CRYPTO_READ 4
#define CRYPTO_WRITE 8

int CRYPTO_num_locks(void);
void CRYPTO_set_locking_callback(void (*callback)(int mode, int number, const char* file, int line));
void CRYPTO_set_id_callback(unsigned long (*callback)(void));

#ifdef __cplusplus
}
#endif
