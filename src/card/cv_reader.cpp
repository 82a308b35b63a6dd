#include "card/cv_reader.h"

#include "card/card_log.h"
#include "card/card_result.h"
#include "card/mw_controller.h"

#include <new>

namespace {

std::shared_ptr<CVReaderData> NewReaderData(NV::SMMW::IReader* reader) {
    try {
        auto data = std::make_shared<CVReaderData>();
        data->m_pReader = reader;
        return data;
    } catch (const std::bad_alloc&) {
        COBLOG(CVLOG_ERROR, L"CVReader::CVReader : Error while allocating memory for m_pReaderData");
        return nullptr;
    }
}

} // namespace

CVReader::CVReader(const wchar_t* lpszReaderName) : m_strReaderName(lpszReaderName ? lpszReaderName : L"") {
    COBLOG(CVLOG_ENTRY, L"CVReader::CVReader : lpszReaderName=%ls", m_strReaderName.c_str());
    NV::SMMW::IReader* match = nullptr;
    if (NV::SMMW::IController* controller = GetMWController()) {
        COBLOG(CVLOG_DETAIL, L"CVReader::CVReader : calling listReaders");
        CallModule(CVLOG_ERROR, L"CVReader::CVReader : Error while trying to find reader: %ls.", [&] {
            for (NV::SMMW::IReader* reader : controller->ListReaders())
                if (reader && m_strReaderName == reader->GetName()) {
                    match = reader;
                    break;
                }
        });
    } else {
        COBLOG(CVLOG_ERROR, L"CVReader::CVReader : GetMWController() returned NULL");
    }
    m_pReaderData = NewReaderData(match);
}

CVReader::CVReader(const wchar_t* lpszReaderName, NV::SMMW::IReader* reader)
    : m_strReaderName(lpszReaderName ? lpszReaderName : L""), m_pReaderData(NewReaderData(reader)) {
    COBLOG(CVLOG_ENTRY, L"CVReader::CVReader : lpszReaderName=%ls", m_strReaderName.c_str());
}

CVReader::CVReader(const CVReader& src)
    : m_strReaderName(src.m_strReaderName), m_pReaderData(src.m_pReaderData) {}

CVReader& CVReader::operator=(const CVReader& src) {
    COBLOG(CVLOG_DETAIL, L"CVReader::operator = : &Src=%#x", LogPtr(&src));
    if (this == &src) return *this;
    // The connection of this copy belongs to the record it leaves.
    CVConnection leaving;
    if (m_bConnected) {
        leaving.m_pContext = m_pReaderData ? m_pReaderData->m_pContext : nullptr;
        Disconnect(leaving);
    }
    m_strReaderName = src.m_strReaderName;
    m_pReaderData = src.m_pReaderData;
    m_bConnected = false;
    return *this;
}

CVReader::~CVReader() {
    if (!m_bConnected) return;
    CVConnection leaving;
    leaving.m_pContext = m_pReaderData ? m_pReaderData->m_pContext : nullptr;
    Disconnect(leaving);
}

NV::SMMW::ReaderState CVReader::GetReaderState() {
    COBLOG(CVLOG_ENTRY, L"CVReader::GetReaderState");
    NV::SMMW::ReaderState state = NV::SMMW::READER_STATE_UNAVAILABLE;
    if (!m_pReaderData || !m_pReaderData->m_pReader) {
        COBLOG(CVLOG_ERROR, !m_pReaderData ? L"CVReader::GetReaderState : m_pReaderData is NULL"
                                           : L"CVReader::GetReaderState : m_pReaderData->m_pReader is NULL");
        COBLOG(CVLOG_ERROR, L"CVReader::GetReaderState : will return READER_STATE_UNAVAILABLE");
    } else if (CallModule(CVLOG_ERROR,
                          L"CVReader::GetReaderState : Error while trying to retrieve reader state: %ls.",
                          [&] { state = m_pReaderData->m_pReader->GetState(); }) != CV_OBJ_API_OK) {
        state = NV::SMMW::READER_STATE_UNAVAILABLE;
    }
    COBLOG(CVLOG_EXIT, L"CVReader::GetReaderState : ret=(%#x)", (unsigned)state);
    return state;
}

uint32_t CVReader::Connect(CVConnection& cConnection) {
    COBLOG(CVLOG_ENTRY, L"CVReader::Connect");
    COBLOG(CVLOG_DETAIL, L"CVReader::Connect : &cConnection=%#x", LogPtr(&cConnection));
    uint32_t ret = CV_OBJ_API_OK;
    CVReaderData* data = m_pReaderData.get();
    if (!data) {
        ret = CV_OBJ_API_NO_MEMORY;
    } else if (m_bConnected) {
        COBLOG(CVLOG_INFO, L"CVReader::Connect : This copy of the reader is already connected");
        cConnection.m_pContext = data->m_pContext;
    } else if (data->m_nOpenConnections == 0) {
        COBLOG(CVLOG_INFO, L"CVReader::Connect : Connection to the card is the first one.");
        NV::SMMW::IController* controller = GetMWController();
        NV::SMMW::IContext* context = nullptr;
        if (!controller) {
            COBLOG(CVLOG_ERROR, L"CVReader::Connect : GetMWController() returned NULL");
            ret = CV_OBJ_API_FAILED;
        } else {
            ret = CallModule(CVLOG_ERROR, L"CVReader::Connect : EstablishContext failed: %ls.", [&] {
                NV::SMMW::ParameterMap parameters;
                // Without a name the module picks the first reader that holds a card.
                if (!m_strReaderName.empty()) parameters.Set(L"ReaderName", m_strReaderName);
                context = controller->EstablishContext(parameters);
            });
            if (ret == CV_OBJ_API_OK && !context) ret = CV_OBJ_API_FAILED;
        }
        if (ret == CV_OBJ_API_OK) {
            data->m_pController = controller;
            data->m_pContext = context;
            data->m_nOpenConnections = 1;
            m_bConnected = true;
            cConnection.m_pContext = context;
        }
    } else {
        COBLOG(CVLOG_INFO, L"CVReader::Connect : There was already (%d) opened connection(s)",
               (int)data->m_nOpenConnections);
        ++data->m_nOpenConnections;
        m_bConnected = true;
        cConnection.m_pContext = data->m_pContext;
    }
    COBLOG(CVLOG_EXIT, L"CVReader::Connect : ret=(%#x)", ret);
    return ret;
}

uint32_t CVReader::Disconnect(CVConnection& cConnection) {
    COBLOG(CVLOG_ENTRY, L"CVReader::Disconnect");
    uint32_t ret = CV_OBJ_API_OK;
    CVReaderData* data = m_pReaderData.get();
    // Only a connected copy holds a count: a second Disconnect must not take another's.
    if (data && m_bConnected && data->m_nOpenConnections > 0) {
        if (--data->m_nOpenConnections == 0) {
            COBLOG(CVLOG_INFO, L"CVReader::Disconnect : Connection was the last one opened.");
            NV::SMMW::IContext* context = data->m_pContext;
            NV::SMMW::IController* controller = data->m_pController;
            data->m_pContext = nullptr;
            data->m_pController = nullptr;
            if (controller && context)
                ret = CallModule(CVLOG_ERROR, L"CVReader::Disconnect : ReleaseContext failed: %ls.",
                                 [&] { controller->ReleaseContext(context); });
        }
    }
    m_bConnected = false;
    cConnection.m_pContext = nullptr;
    COBLOG(CVLOG_EXIT, L"CVReader::Disconnect : ret=(%#x)", ret);
    return ret;
}
