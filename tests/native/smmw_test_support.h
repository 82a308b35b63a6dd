// Shared by the tests that talk to a security module directly (natively and under Wine).
#pragma once
#include <cstdint>

#include "smmw.h"

namespace simtest {

// The module code of the IException* an operation throws; 0 when it throws nothing.
template <class F> uint32_t CodeOf(F&& operation) {
    try {
        operation();
    } catch (NV::Framework::IException* e) {
        const uint32_t code = e->GetCode();
        e->Release();
        return code;
    }
    return 0;
}

// A context on reader (null: the module's choice).
inline NV::SMMW::IContext* OpenContext(NV::SMMW::IController& controller, const wchar_t* reader) {
    NV::SMMW::ParameterMap parameters;
    if (reader) parameters.Set(L"ReaderName", reader);
    return controller.EstablishContext(parameters);
}

// The card's one primary PIN; null when there is none or more than one.
inline NV::SMMW::IPinCredential* PrimaryPin(NV::SMMW::IContext* context) {
    NV::SMMW::Filter filter;
    filter.AddCredentialType(NV::SMMW::CREDENTIAL_PIN);
    filter.AddCredentialAttribute(NV::SMMW::ATTRIBUTE_PRIMARY_PIN, 1);
    auto found = context->ListCredentials(filter);
    return found.size() == 1 ? found[0]->AsPinCredential() : nullptr;
}

} // namespace simtest
