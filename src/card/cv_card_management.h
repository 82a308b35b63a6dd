// Questions to and changes of the card in one reader: unlock challenge and response, the PIN
// rules its PIN credential carries, the backup unlock code, the card type, the transaction
// time-out and the per-card display-notification date. Every operation opens and closes its
// own connection (sharing the reader's context with other copies of the reader), never throws,
// and answers with a CV_OBJ_API_* code or the documented default.
#pragma once
#include <cstdint>

#include "cvpingui_export.h"
#include "card/cv_reader.h"
#include "services/secstr.h"

class CVPINGUI_CLASS CVCardManagement {
  public:
    // Works on a copy of reader: copies of one reader share its connection.
    explicit CVCardManagement(const CVReader& reader);
    ~CVCardManagement();
    CVCardManagement(const CVCardManagement&) = delete;
    CVCardManagement& operator=(const CVCardManagement&) = delete;

    // Hexadecimal text of a fresh unblock challenge.
    uint32_t GetUnlockChallenge(CSecStr* challenge);
    // Unblocks the user PIN with the hexadecimal response to the last challenge and sets newPin.
    uint32_t UnlockPIN(const CSecStr& response, const CSecStr& newPin);

    bool IsWeakPINCheckActivated();               // false on failure
    bool IsAlphaPINCheckActivated();              // "numeric only": CAC, PIV, or the PreventAlphaPIN setting
    uint32_t GetMinPINLen(uint32_t* pnMinPINLen); // output kept on failure
    uint32_t GetMaxPINLen(uint32_t* pnMaxPINLen);
    // Hexadecimal text of the backup unlock code; empty when the card holds none.
    uint32_t GetUnlockCode(CSecStr* unlockCode);
    uint32_t RemoveUnlockCode();

    bool IsCACCard(); // false on failure: "assume it is not"
    bool IsPIVCard();
    // False when the card's unblock rule cannot be met by an authentication; true when the card
    // has no user PIN credential.
    bool IsUnlockAllowed();

    // Seconds since 1970 (UTC) kept for this card in the data cache; -1 when not set or on failure.
    int64_t GetDisplayNotificationDate();
    void SetDisplayNotificationDate(int64_t date);

    // The card's transaction time-out; 0 (none) with success when the card does not tell.
    uint32_t GetTransactionTimeoutValue(uint32_t* punTimeout);

  private:
    template <class Fn>
    uint32_t WithCardSerial(const wchar_t* operation, Fn&& fn);
    bool ReadCardFlag(int32_t propertyId, const wchar_t* entryName, const wchar_t* exitFormat,
                      const wchar_t* errorFormat);
    uint32_t ReadPinLength(int32_t propertyId, uint32_t* length, const wchar_t* name, const wchar_t* nullLine,
                           const wchar_t* valueLine, const wchar_t* exitFormat, const wchar_t* errorFormat);

    CVReader m_reader;
};
