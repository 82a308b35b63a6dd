// The event sources the library feeds itself: today the session lock, from Windows' session
// notifications. They run only while someone listens.
#pragma once

// Starts listening for the first subscriber of the session-state event (sets the event bus's
// source hooks). Call once at load, before any dialog opens.
void InstallBuiltInEventSources();

// Stops the sources and removes the hooks. Call it from the thread of the last dialog or
// outside the loader lock: a notification window of another thread is only asked to close.
void RemoveBuiltInEventSources();
