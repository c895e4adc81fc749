/* Symbol visibility for the KeLoComm library: only what carries KELOCOMM_API is exported. */
#ifndef KELOCOMM_EXPORT_H
#define KELOCOMM_EXPORT_H

#if defined(_WIN32)
#if defined(KELOCOMM_BUILDING)
#define KELOCOMM_API __declspec(dllexport)
#else
#define KELOCOMM_API __declspec(dllimport)
#endif
#elif defined(__GNUC__)
#define KELOCOMM_API __attribute__((visibility("default")))
#else
#define KELOCOMM_API
#endif

#endif
