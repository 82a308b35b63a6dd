#include "card/cv_reader_list.h"

#include "card/card_log.h"
#include "card/card_result.h"
#include "card/hex_converter.h"
#include "card/mw_controller.h"

#include <cwctype>
#include <new>

namespace {

bool SameHex(const CSecStr& a, const wchar_t* b) {
    const int length = a.GetLength();
    for (int i = 0; i < length; ++i)
        if (!b[i] || std::towupper(a[i]) != std::towupper(b[i])) return false;
    return b[length] == 0;
}

} // namespace

uint32_t CVReaderList::GetReaderList() {
    COBLOG(CVLOG_ENTRY, L"CVReaderList::GetReaderList");
    m_readers.clear();
    NV::SMMW::IController* controller = GetMWController();
    uint32_t ret;
    if (!controller) {
        COBLOG(CVLOG_ERROR, L"CVReaderList::GetReaderList : GetMWController() returned NULL");
        ret = CV_OBJ_API_FAILED;
    } else {
        COBLOG(CVLOG_DETAIL, L"CVReaderList::GetReaderList : calling ListReaders");
        std::vector<NV::SMMW::IReader*> readers;
        ret = CallModule(CVLOG_ERROR, L"CVReaderList::GetReaderList : Error while listing readers: %ls.",
                         [&] { readers = controller->ListReaders(); });
        if (ret == CV_OBJ_API_OK) {
            try {
                for (NV::SMMW::IReader* reader : readers)
                    if (reader) m_readers.emplace_back(reader->GetName(), reader);
            } catch (const std::bad_alloc&) {
                COBLOG(CVLOG_ERROR, L"CVReaderList::GetReaderList : Error while allocating memory for pTmp");
                m_readers.clear();
                ret = CV_OBJ_API_NO_MEMORY;
            }
        }
    }
    COBLOG(CVLOG_EXIT, L"CVReaderList::GetReaderList : ret=(%#x)", ret);
    return ret;
}

CVReaderPosition CVReaderList::GetFirstReaderPosition() const {
    return m_readers.empty() ? 0 : 1;
}

CVReader* CVReaderList::GetNextReader(CVReaderPosition& position) {
    if (position == 0 || position > m_readers.size()) {
        position = 0;
        return nullptr;
    }
    CVReader* reader = &m_readers[position - 1];
    position = position < m_readers.size() ? position + 1 : 0;
    return reader;
}

CVReader* CVReaderList::GetReaderFromCUID(const wchar_t* cuid) {
    COBLOG(CVLOG_ENTRY, L"CVReaderList::GetReaderFromCUID");
    CVReader* result = nullptr;
    for (CVReader& reader : m_readers) {
        if (!cuid) break;
        const wchar_t* name = reader.GetReaderName().c_str();
        COBLOG(CVLOG_DETAIL, L"CVReaderList::GetReaderFromCUID : Testing reader %ls", name);
        if (reader.GetReaderState() != NV::SMMW::READER_STATE_PRESENT) continue;
        COBLOG(CVLOG_DETAIL, L"CVReaderList::GetReaderFromCUID : Reader %ls has a card, checking its CUID",
               name);
        CVReader copy(reader);
        CVConnection connection;
        if (copy.Connect(connection) != CV_OBJ_API_OK) continue;
        CSecStr identifier;
        const uint32_t rc = CallModule(
            CVLOG_ERROR,
            L"CVReaderList::GetReaderFromCUID : Error while trying to retrieve card identifier: %ls.", [&] {
                NV::SMMW::ICardContext* card = connection.GetContext()->GetCard();
                if (!card) return;
                CVData value;
                card->GetProperty(NV::SMMW::PROPERTY_CARD_IDENTIFIER, value);
                NV::Framework::CConverter::BinToHex(value.AsBytes(), identifier);
            });
        copy.Disconnect(connection);
        if (rc == CV_OBJ_API_OK && !identifier.IsEmpty() && SameHex(identifier, cuid)) {
            COBLOG(CVLOG_INFO, L"CVReaderList::GetReaderFromCUID : Reader %ls has the needed card", name);
            result = &reader;
            break;
        }
    }
    COBLOG(CVLOG_EXIT, L"CVReaderList::GetReaderFromCUID : ret=(%#x)", LogPtr(result));
    return result;
}
