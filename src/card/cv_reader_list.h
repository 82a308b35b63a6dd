// The readers the security module reports, in its order.
#pragma once
#include <cstddef>
#include <vector>

#include "cvpingui_export.h"
#include "card/cv_reader.h"

// A position in the list: 0 is past the end.
using CVReaderPosition = size_t;

class CVPINGUI_CLASS CVReaderList {
  public:
    CVReaderList() = default;

    // Replaces the list with the controller's readers.
    uint32_t GetReaderList();

    CVReaderPosition GetFirstReaderPosition() const;
    // The reader at position (null past the end); position moves to the next one.
    CVReader* GetNextReader(CVReaderPosition& position);

    // The first reader whose card has this identifier (hexadecimal, either case); null if none.
    CVReader* GetReaderFromCUID(const wchar_t* cuid);

  private:
    std::vector<CVReader> m_readers;
};
