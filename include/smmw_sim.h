// Control functions of the simulated security module cv.smmw.mwctl.dll, for hosts, demos and
// tests: which cards are in which readers, and what state their PINs are in. Plain C, wide
// strings; no function throws, and every pointer argument may be null (the call then fails with
// CVSIM_E_INVALID_ARGUMENT, or for an optional output is simply not written).
//
// The module starts with the profile named by the environment variable CV_SIM_PROFILE (a file
// path), else by the setting "Corvana.Simulator.Profile", else the built-in one. The profile
// format is described in docs/simulator.md.
#pragma once
#include <wchar.h>

#ifdef __cplusplus
extern "C" {
#endif

#define CVSIM_OK 0
#define CVSIM_E_INVALID_ARGUMENT 1
#define CVSIM_E_NOT_FOUND 2        /* no such reader, or no card in its profile (or out, to verify) */
#define CVSIM_E_PROFILE 3          /* the profile was refused; see CvSimGetLastError */
#define CVSIM_E_NO_MATCH 4         /* CvSimPinEquals, CvSimVerifyPin: the PIN is another one */
#define CVSIM_E_BUFFER_TOO_SMALL 5 /* CvSimGetLastError: the text was cut */
#define CVSIM_E_UNCHANGED 6        /* the card was already out (remove) or in (insert) */
#define CVSIM_E_INTERNAL 7
#define CVSIM_E_BLOCKED 8          /* CvSimVerifyPin: no tries left, not even the right PIN passes */

/* Replace every reader and card. On failure the cards stay as they were. */
int CvSimLoadProfileFile(const wchar_t* path);
int CvSimLoadProfileJson(const char* utf8Json);
int CvSimLoadDefaultProfile(void);

/* Take the card out of, or put it back into, the named reader; sinks hear of it on this thread.
   A card that comes back keeps its PIN state; contexts opened before the removal stay invalid. */
int CvSimRemoveCard(const wchar_t* readerName);
int CvSimInsertCard(const wchar_t* readerName);

/* The PIN state of the reader's card, whether the card is in the reader or not. */
int CvSimGetPinState(const wchar_t* readerName, unsigned* triesLeft, unsigned* maxTries, int* blocked);
/* CVSIM_OK when pin is the card's PIN, CVSIM_E_NO_MATCH when not (the PIN is never read out). */
int CvSimPinEquals(const wchar_t* readerName, const wchar_t* pin);
/* Verifies pin as the security module does: the right PIN restores every try
   (CVSIM_OK), a wrong one uses one up (CVSIM_E_NO_MATCH), and with no try left even the right PIN
   is refused, uncounted (CVSIM_E_BLOCKED). The card must be in the reader. *triesLeft (optional)
   gets the tries left after the call. */
int CvSimVerifyPin(const wchar_t* readerName, const wchar_t* pin, unsigned* triesLeft);

/* The text of the last profile failure ("" when none), terminated and cut to fit capacity
   characters; *needed (optional) gets the full length with the terminator. */
int CvSimGetLastError(wchar_t* buffer, unsigned capacity, unsigned* needed);

typedef int (*CvSimRemoveCardFn)(const wchar_t*);
typedef int (*CvSimInsertCardFn)(const wchar_t*);
typedef int (*CvSimLoadProfileFileFn)(const wchar_t*);
typedef int (*CvSimLoadProfileJsonFn)(const char*);
typedef int (*CvSimLoadDefaultProfileFn)(void);
typedef int (*CvSimGetPinStateFn)(const wchar_t*, unsigned*, unsigned*, int*);
typedef int (*CvSimPinEqualsFn)(const wchar_t*, const wchar_t*);
typedef int (*CvSimVerifyPinFn)(const wchar_t*, const wchar_t*, unsigned*);
typedef int (*CvSimGetLastErrorFn)(wchar_t*, unsigned, unsigned*);

#ifdef __cplusplus
}
#endif
