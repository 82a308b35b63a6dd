// Where CVCardManagement keeps each card's display-notification date, keyed by the card's
// serial number. Windows: the shared data cache (display_date_cache_win.cpp); the portable
// build keeps the dates in memory for the life of the process.
#pragma once
#include <cstdint>

#include "services/secstr.h"

// The date, or -1 when none is stored or it cannot be read (logged).
int64_t ReadDisplayNotificationDate(const CSecStr& serialNumber);
// Failures are only logged.
void WriteDisplayNotificationDate(const CSecStr& serialNumber, int64_t date);

// The data cache's address of the record: the store of all cards' dates and the record's name.
extern const wchar_t kDisplayDateStoreId[];
extern const wchar_t kDisplayDateDataId[];
