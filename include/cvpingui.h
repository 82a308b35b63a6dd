/*
 * cvpingui.h - the PIN user-interface library of the Corvana smart-card middleware.
 *
 * Load cv.corvana.gui.pin.dll and call these functions on a thread that may show windows.
 * Each call shows one modal dialog on the calling thread and returns when the user is done.
 * All strings are UTF-16. Every function returns a status and never throws.
 *
 * Secrets: a PIN returned to the caller lives in a buffer of the library; release it with
 * FreeGetPinBuffer, which overwrites it before freeing.
 *
 * Prompts are one at a time per process: a PIN prompt (GetPINFromUser, ShowPINAlwaysPrompt)
 * or a PIN-pad prompt (ShowKeyPadPrompt, ShowKeyPadChgPinPrompt) opened while another of the
 * same kind is open is refused with CVPIN_FAILED.
 */
#ifndef CVPINGUI_H
#define CVPINGUI_H

#include <stddef.h>
#include <windows.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Results of the PIN prompts. */
#define CVPIN_OK 0
#define CVPIN_FAILED (-1) /* cancelled, refused, session locked, card removed, out of memory */

/* Called on the dialog's thread every timerPeriodMs while a PIN prompt is open. */
typedef void(WINAPI* TimerCallback)(void* context);

/* The PIN rules of a card, as the PIN change and the unlock dialogs apply them. */
typedef struct PwdRuleArgs {
    int bPreventAlphaPIN;      /* non-zero: digits only */
    int bAllowWeakPIN;         /* zero: weak PINs (repeated or sequential) are refused */
    int bPreventSamePIN;       /* non-zero: the new PIN must differ from the current one */
    unsigned int dwMinPINLen;  /* 0xFFFFFFFF: no minimum */
    unsigned int dwMaxPINLen;  /* 0xFFFFFFFF: no maximum */
    int bDisableCancel;        /* non-zero: the PIN change cannot be cancelled */
} PwdRuleArgs;

#define CVPIN_NO_LENGTH_RULE 0xFFFFFFFFu

/*
 * Asks for the PIN of the card in readerName.
 * displayLastPINTry  non-zero: warn first that this is the last try (see DisplayLastPINTry).
 * min/maxPinLength   the length limits; the settings Corvana.PINPolicies.PreventSmallPINEntry
 *                    and Corvana.PINPolicies.EnableLargePINEntry decide which of them apply.
 * pinBuffer, pinLength  out: the PIN in the ANSI code page, not terminated; NULL and 0 for an
 *                    empty PIN. Release with FreeGetPinBuffer(*pinBuffer, *pinLength).
 * callback           optional, called every timerPeriodMs while the dialog is open.
 * Returns CVPIN_OK, or CVPIN_FAILED when cancelled, refused, locked or the card was removed.
 */
int WINAPI GetPINFromUser(HWND hParent, const wchar_t* readerName, int displayLastPINTry,
                          unsigned minPinLength, unsigned maxPinLength, char** pinBuffer,
                          unsigned* pinLength, TimerCallback callback, void* callbackContext,
                          unsigned timerPeriodMs);

/* Overwrites size bytes of buffer with zeros and frees it. NULL is allowed. */
void WINAPI FreeGetPinBuffer(void* buffer, size_t size);

/* Kept for callers of an older interface; does nothing. */
void WINAPI FreeReaderNameBuffer(void* buffer);

/* Shows the "last try" warning for the reader: CVPIN_OK when the user goes on, else CVPIN_FAILED. */
int WINAPI DisplayLastPINTry(const wchar_t* readerName);

/* Text of a caller error code (1-12, 14, 23). Other codes return the previous text unchanged.
 * The pointer stays valid until the next call; not thread-safe. */
const wchar_t* WINAPI GetErrorString(int code);

/* Replaces the prompt text of GetPINFromUser for every later call; NULL restores the default. */
void WINAPI SetPinPromptString(const wchar_t* text);

/* "Enter your PIN on the reader" while the reader's PIN pad is in use. Always returns
 * CVPIN_FAILED (or the answer of the last-try warning when it declines); the caller closes
 * the prompt from another thread with CancelKeyPadPrompt when the card has answered. */
int WINAPI ShowKeyPadPrompt(HWND hParent, const wchar_t* readerName, const wchar_t* prompt,
                            int displayLastPINTry, TimerCallback callback, void* context,
                            unsigned periodMs);
void WINAPI CancelKeyPadPrompt(void);

/* The same for a PIN change on the pad; secondStep selects the wording for the new PIN. */
int WINAPI ShowKeyPadChgPinPrompt(HWND hParent, const wchar_t* readerName, const wchar_t* prompt,
                                  BOOL secondStep, char displayLastPINTry, TimerCallback callback,
                                  void* context, unsigned periodMs);
void WINAPI CancelKeyPadChgPinPrompt(void);

/*
 * Asks for the current PIN and a new one for the card in readerName, in the PIN change window:
 * the new PIN is checked live against the rules, and OK is enabled only when every rule holds.
 * Unlike the PIN prompts, the window opens on a locked session too; a lock then closes it.
 * preventAlpha       non-zero: digits only
 * allowWeak          zero: repeated or sequential PINs (1111, 1234) are refused
 * min/maxLength      in characters; CVPIN_NO_LENGTH_RULE for none
 * firstUse           1 for the forced change at the card's first use: with the setting
 *                    Corvana.ChangePINPolicies.DisableCancelChangePINatFirstUse it cannot be
 *                    cancelled, and a session lock leaves it open (removing the card still
 *                    ends it)
 * showLastTry        non-zero: warn first that a wrong current PIN may block the card
 * newPin, currentPin caller's buffers of newPinSize / currentPinSize characters (terminator
 *                    included); on success they hold the PINs and *...Length their lengths.
 *                    Overwrite them when done.
 * hParent            the caller's window. When it holds an embedded CChangePINDialog, the PINs
 *                    come from that form and no window opens.
 * requireCurrentPin  non-zero: the current-PIN field is shown and must be filled
 * callback           optional, called every periodMs while the window is open
 * Returns 0; 0xFFFFFFFF when cancelled, for invalid arguments, for a PIN that does not fit its
 * buffer, or when an embedded form's PINs break a rule; or the last-try warning's refusal.
 */
unsigned WINAPI GetChangePINInfoFromUser_s(int preventAlpha, int allowWeak, unsigned minLength, unsigned maxLength,
                                           int firstUse, int showLastTry, wchar_t* newPin, unsigned newPinSize,
                                           unsigned* newPinLength, wchar_t* currentPin, unsigned currentPinSize,
                                           unsigned* currentPinLength, const wchar_t* readerName, HWND hParent,
                                           unsigned char requireCurrentPin, TimerCallback callback, void* context,
                                           unsigned periodMs);

/* The same, with buffers of 256 characters each. */
unsigned WINAPI GetChangePINInfoFromUser(int preventAlpha, int allowWeak, unsigned minLength, unsigned maxLength,
                                         int firstUse, int showLastTry, wchar_t* newPin, unsigned* newPinLength,
                                         wchar_t* currentPin, unsigned* currentPinLength, const wchar_t* readerName,
                                         HWND hParent, unsigned char requireCurrentPin, TimerCallback callback,
                                         void* context, unsigned periodMs);

/* Confirmation before a PIN-always operation: CVPIN_OK when confirmed. */
int WINAPI ShowPINAlwaysPrompt(HWND hParent, const wchar_t* readerName);

/* The About box; text is shown in it. Returns the dialog's result. */
INT_PTR WINAPI ShowAbout(unsigned flags, const wchar_t* text);

/* For MFC hosts, once after loading: an extension-library record for this module (NULL when it
 * cannot be made). The record stays the library's: the host uses it while the library is loaded
 * and never frees or deletes it (it comes from the library's own C++ runtime). */
void* WINAPI InitGUIDll(void);

/* --- Card unlock ------------------------------------------------------------------------ */

/* Results of the unlock dialogs (besides IDOK and IDCANCEL). */
#define CVPIN_UNLOCK_TOAST 3 /* unlock is not allowed, and the user was told in a toast */

/*
 * Unblocks the card's PIN with the help desk: the user reads the card's challenge to the help
 * desk and types its response and a new PIN under the card's rules (a card without a challenge
 * takes its static unlock code instead). hReader: the security module's reader object for
 * readerName when the caller has one (NV::SMMW::IReader*), else NULL. The card transaction opened
 * here stays alive while the dialog is open.
 * Returns IDOK (1) when the card is unlocked, IDCANCEL (2) when cancelled, when the card was
 * removed or the reader could not be reached; when the card may not be unlocked from here:
 * CVPIN_UNLOCK_TOAST, or the result of the notice shown where no toast can be raised.
 */
unsigned WINAPI ShowUnlockDialog(HWND hParent, const wchar_t* readerName, void* hReader);

/* Called by DisplayUnlockCode: getCode writes the code as hexadecimal text, terminated, into
 * code (capacity characters; the library wipes it afterwards) and returns 0, or a card-layer
 * error; removeCode removes the code from the card. */
typedef int(WINAPI* CVGetUnlockCodeCallback)(void* context, wchar_t* code, unsigned capacity);
typedef void(WINAPI* CVRemoveUnlockCodeCallback)(void* context);

/*
 * Shows the unlock code stored on the card of readerName, once, for the user to note. When the
 * user ticks "never show again" and confirms, the code is removed from the card and 1 is
 * returned; 1 also when the card holds no code; otherwise 0 (also when the setting
 * Corvana.UserConsole.HideUnlockCode hides it, or the reader or the code could not be read).
 */
unsigned WINAPI ShowUnlockCode(HWND hParent, const wchar_t* readerName);

/*
 * The same for any card: getCode reads the code (a null callback counts as an error), removeCode
 * removes it. Returns 1 when the user chose never to see it again (and removeCode ran), or when
 * the card holds no code; else 0.
 */
unsigned WINAPI DisplayUnlockCode(HWND hParent, void* context, CVGetUnlockCodeCallback getCode,
                                  CVRemoveUnlockCodeCallback removeCode, const wchar_t* readerName);

/* Tells the user that the card manager has blocked the card in readerName: in a toast where one
 * can be raised, else in a notice that closes when the card is removed. */
void WINAPI ShowCMLockedDlg(HWND hParent, const wchar_t* readerName);

/* --- Host integration ------------------------------------------------------------------ */

/* Event ids and sources of the library's event bus. */
#define CVPIN_EVENT_SESSION_STATE 10001
#define CVPIN_EVENT_CARD_REMOVED 10002
#define CVPIN_SESSION_LOCKING 10060
#define CVPIN_SESSION_LOCKING_2 10065
/* {E9F60E34-E16C-4C33-A5F0-AA46DB99CA32}: card events, with the reader name */
/* {F0C38807-4D99-4004-8C00-7C1EA149235D}: session-state events, with the code */

/*
 * Delivers one event to every current subscriber of (eventId, source), on the calling thread.
 * Returns how many subscribers it reached, or -1 for a null source. Open dialogs react by
 * closing: a card removal (10002, reader name) closes the prompts of that reader; a session
 * event with code 10060 or 10065 closes every prompt, except a first-use PIN change that may not
 * be cancelled.
 */
int WINAPI CVPinGuiPublishEvent(int eventId, const GUID* source, int code, const wchar_t* readerName);

/* Replaces the session-state source (WTS). The provider writes 0 to *state when the session
 * is locked. NULL restores the built-in source. */
typedef int(WINAPI* CVPinGuiSessionStateProvider)(unsigned* state);
void WINAPI CVPinGuiSetSessionStateProvider(CVPinGuiSessionStateProvider provider);

/* Replaces the library's toasts (Windows' own, where the system has them). The provider raises a
 * toast with this title and text, returns nonzero when it did, and may write its show result to
 * *shown (never NULL). Installed, every toast goes to it; NULL restores the built-in toasts. */
typedef int(WINAPI* CVPinGuiToastProvider)(const wchar_t* title, const wchar_t* text, int* shown);
void WINAPI CVPinGuiSetToastProvider(CVPinGuiToastProvider raise);

/* Replaces the library's answer to "where is the user": 1 on the interactive desktop, 2 on
 * another input desktop (secure desktop, Winlogon), 3 in an app container. Where it is not 1, the
 * library also raises a toast asking the user to switch to the desktop. NULL restores the
 * built-in answer (from the input desktop and the process token). */
typedef int(WINAPI* CVPinGuiUiModeProvider)(void);
void WINAPI CVPinGuiSetUiModeProvider(CVPinGuiUiModeProvider mode);

#ifdef __cplusplus
}
#endif

#endif /* CVPINGUI_H */
