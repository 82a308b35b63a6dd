// What the card-removal and workstation-lock watchers react to.
#pragma once

// A watcher of watchedReader reacts to a removal in eventReader: same name ignoring ASCII case,
// or any reader when watchedReader is null or empty. A null eventReader counts as "".
bool ReaderMatches(const wchar_t* watchedReader, const wchar_t* eventReader);

// Session-state codes that mean "the workstation is being locked".
bool IsSessionLockingCode(int code);
