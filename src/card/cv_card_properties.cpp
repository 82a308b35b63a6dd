#include "card/cv_card_properties.h"

#include "card/card_log.h"
#include "card/card_result.h"
#include "card/hex_converter.h"

CVCardProperties::CVCardProperties(const CVReader& reader) : m_reader(reader) {
    COBLOG(CVLOG_DETAIL, L"CVCardProperties::CVCardProperties : this=%#x", LogPtr(this));
    COBLOG(CVLOG_ENTRY, L"CVCardProperties::CVCardProperties");
}

CVCardProperties::~CVCardProperties() {
    COBLOG(CVLOG_DETAIL, L"CVCardProperties::~CVCardProperties : this=%#x", LogPtr(this));
    COBLOG(CVLOG_EXIT, L"CVCardProperties::~CVCardProperties");
}

uint32_t CVCardProperties::GetSerialNumber(CSecStr* serialNumber) {
    COBLOG(CVLOG_ENTRY, L"CVCardProperties::GetSerialNumber");
    if (!serialNumber) {
        COBLOG(CVLOG_EXIT, L"CVCardProperties::GetSerialNumber : ret=(%#x)", CV_OBJ_API_INVALID_PARAMETER);
        return CV_OBJ_API_INVALID_PARAMETER;
    }
    CVConnection connection;
    uint32_t ret = m_reader.Connect(connection);
    if (ret != CV_OBJ_API_OK) {
        COBLOG(CVLOG_ERROR, L"CVCardProperties::GetSerialNumber : Unable to connect. Error is (%d)",
               (int)ret);
    } else {
        serialNumber->Empty();
        ret = CallModule(CVLOG_INFO,
                         L"CVCardProperties::GetSerialNumber : Error while trying to read Identifier: %ls.",
                         [&] {
                             NV::SMMW::ICardContext* card = connection.GetContext()->GetCard();
                             if (!card) return;
                             CVData identifier;
                             card->GetProperty(NV::SMMW::PROPERTY_CARD_IDENTIFIER, identifier);
                             NV::Framework::CConverter::BinToHex(identifier.AsBytes(), *serialNumber);
                             m_properties[kSerialNumber] = *serialNumber;
                         });
        if (ret != CV_OBJ_API_OK) serialNumber->Empty();
    }
    if (connection.IsConnected()) m_reader.Disconnect(connection);
    COBLOG(CVLOG_EXIT, L"CVCardProperties::GetSerialNumber : ret=(%#x)", ret);
    return ret;
}
