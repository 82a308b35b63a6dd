#include "card/display_date_cache.h"

const wchar_t kDisplayDateStoreId[] = L"{DE7C1351-5982-43b3-AB97-74D3FCACF684}";
const wchar_t kDisplayDateDataId[] = L"DisplayNotificationDate";

#ifndef _WIN32
#include <map>
#include <mutex>
#include <string>

namespace {

struct MemoryDates {
    std::mutex lock;
    std::map<std::wstring, int64_t> dates;
};

MemoryDates& TheDates() {
    static MemoryDates dates;
    return dates;
}

} // namespace

int64_t ReadDisplayNotificationDate(const CSecStr& serialNumber) {
    if (serialNumber.IsEmpty()) return -1;
    MemoryDates& store = TheDates();
    std::lock_guard<std::mutex> guard(store.lock);
    auto it = store.dates.find(serialNumber.GetString());
    return it == store.dates.end() ? -1 : it->second;
}

void WriteDisplayNotificationDate(const CSecStr& serialNumber, int64_t date) {
    if (serialNumber.IsEmpty()) return;
    MemoryDates& store = TheDates();
    std::lock_guard<std::mutex> guard(store.lock);
    store.dates[serialNumber.GetString()] = date;
}
#endif
