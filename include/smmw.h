// The security module's interface: what the card object layer (src/card/) calls and what the
// controller library cv.smmw.mwctl.dll (sim/) implements. Both sides include this header and are
// built by the same compiler, so the classes below are the binary interface between them.
//
// Failures: every operation may throw NV::Framework::IException* (a pointer; whoever catches it
// calls Release()). Nothing else is thrown across the interface.
//
// Ownership: the controller owns its readers for the life of the process; a context is owned by
// the controller from EstablishContext until ReleaseContext, and owns everything it hands out
// (card context, credentials); a credential owns its access-right objects.
//
// Portable: no Windows headers, so that the layer's logic is also built and tested natively.
#pragma once
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "services/cvdata.h"

namespace NV { namespace Framework {

class IException {
public:
    virtual const wchar_t* GetMessageText() const = 0;  // never null
    virtual uint32_t GetCode() const = 0;               // module codes, 3000 and up
    virtual void Release() = 0;                         // deletes the exception

protected:
    virtual ~IException() = default;
};

}}  // namespace NV::Framework

namespace NV { namespace SMMW {

// Module codes carried by IException (the layer maps them to its own codes).
enum ModuleCode : uint32_t {
    SMMW_E_INVALID_PARAMETER = 3000,
    SMMW_E_NOT_SUPPORTED = 3001,
    SMMW_E_NO_CARD = 3002,
    SMMW_E_CARD_REMOVED = 3003,
    SMMW_E_CANCELLED = 3004,
    SMMW_E_NO_READER = 3005,
    SMMW_E_PIN_BLOCKED = 3006,
    SMMW_E_ACCESS_DENIED = 3007,
    SMMW_E_WRONG_CODE = 3008,
    SMMW_E_READER_UNAVAILABLE = 3009,
    SMMW_E_WRONG_PIN = 3010,
    SMMW_E_CARD_UNRESPONSIVE = 3011,
    SMMW_E_CARD_COMMAND_FAILED = 3012,
    SMMW_E_TIMEOUT = 3013,
    SMMW_E_CARD_RESET = 3014,
    SMMW_E_NO_MEMORY = 3015,
    SMMW_E_CARD_FULL = 3017,
    SMMW_E_FILE_NOT_FOUND = 3018,
    SMMW_E_READER_REMOVED = 3019,
    SMMW_E_CARD_COMMUNICATION = 3020,
    SMMW_E_PIN_LOCKED = 3021,
    SMMW_E_NO_SMARTCARD = 3022,
    SMMW_E_UNSUPPORTED_CARD = 3028,
    SMMW_E_INTERNAL = 3099,
};

// Properties read and written with GetProperty/SetProperty.
enum PropertyId : int32_t {
    // Of the card context.
    PROPERTY_CARD_IDENTIFIER = 0,       // bytes: the serial number
    PROPERTY_CARD_IS_CAC = 3,           // byte, non-zero for a CAC card
    PROPERTY_CARD_IS_PIV = 4,           // byte, non-zero for a PIV card
    PROPERTY_TRANSACTION_TIMEOUT = 18,  // unsigned 32-bit
    // Of the user PIN credential.
    PROPERTY_PIN_MIN_LENGTH = 25,   // byte
    PROPERTY_PIN_MAX_LENGTH = 26,   // byte
    PROPERTY_PIN_WEAK_CHECK = 30,   // byte, 1 when active
    PROPERTY_PIN_UNLOCK_CODE = 33,  // bytes: the backup unlock code
};

enum ReaderState : int32_t {
    READER_STATE_UNAVAILABLE = 0,  // the reader cannot be asked
    READER_STATE_EMPTY = 1,        // no card
    READER_STATE_PRESENT = 2,      // a card is in the reader
};

enum CredentialType : int32_t {
    CREDENTIAL_PKI = 1,
    CREDENTIAL_KEY_CONTAINER = 2,
    CREDENTIAL_DATA = 3,
    CREDENTIAL_PIN = 4,
};

// Credential attributes a filter can name.
enum CredentialAttribute : int32_t {
    ATTRIBUTE_DATA_TYPE = 7,           // data credentials: their type
    ATTRIBUTE_PRIMARY_PIN = 38,        // PIN credentials: 1 for the card's primary PIN
    ATTRIBUTE_GLOBAL_PRIMARY_PIN = 158 // PIN credentials: 1 for a primary PIN shared by applications
};

// Which credentials ListCredentials returns: any of the types (none: every type) with every
// attribute pair equal.
class Filter {
public:
    void AddCredentialType(int32_t type) { m_types.push_back(type); }
    void AddCredentialAttribute(int32_t id, int64_t value) { m_attributes.emplace_back(id, value); }
    const std::vector<int32_t>& Types() const { return m_types; }
    const std::vector<std::pair<int32_t, int64_t>>& Attributes() const { return m_attributes; }

private:
    std::vector<int32_t> m_types;
    std::vector<std::pair<int32_t, int64_t>> m_attributes;
};

// Named string parameters of EstablishContext ("ReaderName").
class ParameterMap {
public:
    void Set(const std::wstring& name, const std::wstring& value) {
        for (auto& p : m_values)
            if (p.first == name) { p.second = value; return; }
        m_values.emplace_back(name, value);
    }
    const std::wstring* Find(const std::wstring& name) const {
        for (auto& p : m_values)
            if (p.first == name) return &p.second;
        return nullptr;
    }

private:
    std::vector<std::pair<std::wstring, std::wstring>> m_values;
};

// What a credential requires before an action ("ActionUnblock", "ActionGetValue", ...).
class CSMMWAccessControlRight {
public:
    // True when an authentication (a PIN, an administrator's challenge/response) can satisfy it.
    virtual bool IsAuthenticable() const = 0;

protected:
    virtual ~CSMMWAccessControlRight() = default;
};

class IPinCredential;

class ICredential {
public:
    virtual int32_t GetType() const = 0;
    virtual void GetProperty(int32_t id, CVData& value) = 0;
    virtual void SetProperty(int32_t id, const CVData& value) = 0;
    // Null when the credential has no rule for the action.
    virtual CSMMWAccessControlRight* GetAccessRight(const wchar_t* action) = 0;
    // This credential as a PIN credential; null for other types.
    virtual IPinCredential* AsPinCredential() = 0;

protected:
    virtual ~ICredential() = default;
};

class IPinCredential : public ICredential {
public:
    // A fresh challenge for the administrator's response; replaces any earlier one.
    virtual std::vector<uint8_t> GetUnblockChallenge() = 0;
    // Unblocks with the response to the last challenge and sets newPin. flags: 0.
    virtual void Unblock(const std::vector<uint8_t>& response, const wchar_t* newPin,
                         uint32_t flags) = 0;

protected:
    ~IPinCredential() override = default;
};

// Parameters of a credential to create on the card.
struct CredentialParameters {
    int32_t type = CREDENTIAL_DATA;
    std::vector<std::pair<int32_t, CVData>> properties;
};

class ICardContext {
public:
    virtual void GetProperty(int32_t id, CVData& value) = 0;
    virtual void SetProperty(int32_t id, const CVData& value) = 0;
    // Card-side actions such as "ActionRefreshCmapFile" and "ActionRefreshMsRoots".
    virtual void RunAction(const wchar_t* action) = 0;

protected:
    virtual ~ICardContext() = default;
};

class IContext {
public:
    virtual ICardContext* GetCard() = 0;
    virtual std::vector<ICredential*> ListCredentials(const Filter& filter) = 0;
    virtual ICredential* CreateCredential(const CredentialParameters& parameters,
                                          const std::vector<std::wstring>& accessRights) = 0;
    // Capabilities such as "ImportCertificate".
    virtual bool HasCapability(const wchar_t* capability) = 0;
    virtual void BeginTransaction() = 0;
    virtual void EndTransaction() = 0;
    virtual void ResetTransactionTimeout() = 0;

protected:
    virtual ~IContext() = default;
};

class IReader {
public:
    virtual const wchar_t* GetName() const = 0;  // never null
    virtual ReaderState GetState() = 0;

protected:
    virtual ~IReader() = default;
};

enum ReaderEventKind : int32_t { READER_EVENT_CARD_INSERTED = 1, READER_EVENT_CARD_REMOVED = 2 };

// Told of card insertions and removals, on the thread that caused them (the simulator's control
// functions). Must not block.
class IReaderEventSink {
public:
    virtual void OnReaderEvent(ReaderEventKind kind, const wchar_t* readerName) = 0;

protected:
    virtual ~IReaderEventSink() = default;
};

class IController {
public:
    virtual void Initialize() = 0;
    virtual std::vector<IReader*> ListReaders() = 0;
    // parameters may hold "ReaderName"; without it the first reader with a card is used.
    virtual IContext* EstablishContext(const ParameterMap& parameters) = 0;
    virtual void ReleaseContext(IContext* context) = 0;
    virtual void Subscribe(IReaderEventSink* sink) = 0;
    virtual void Unsubscribe(IReaderEventSink* sink) = 0;

protected:
    virtual ~IController() = default;
};

}}  // namespace NV::SMMW

// The controller library's entry, exported unmangled as "GetSMMWController". The controller lives
// as long as the library stays loaded.
extern "C" typedef NV::SMMW::IController* (*GetSMMWControllerFn)();
