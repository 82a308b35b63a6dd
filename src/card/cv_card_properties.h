// Descriptive properties of the card in a reader; today its serial number.
#pragma once
#include <cstdint>

#include "cvpingui_export.h"
#include "card/cv_reader.h"
#include "services/secstr.h"

class CVPINGUI_CLASS CVCardProperties {
  public:
    explicit CVCardProperties(const CVReader& reader);
    virtual ~CVCardProperties();

    // Upper-case hexadecimal of the card identifier, two digits a byte, leading zeros kept.
    uint32_t GetSerialNumber(CSecStr* serialNumber);

  private:
    enum { kSerialNumber, kPropertyCount = 12 };
    CVReader m_reader;
    CSecStr m_properties[kPropertyCount]; // kept as last read; empty until then
};
