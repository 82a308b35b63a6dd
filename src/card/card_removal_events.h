// Feeds the security module's card removals to the event bus as
// (CV_EVENT_CARD_REMOVED, CV_SOURCE_CARD_EVENTS, 0, reader name), so that the dialogs' watchers
// close their prompts when the card goes.
#pragma once

// Subscribes to the module once for the process, loading the controller if needed. Call it
// when the bus gets its first card-removal subscriber, never under the loader lock. Without a
// controller nothing happens (a later call tries again); hosts may still publish removals.
void StartCardRemovalEvents();

// Unsubscribes from the controller it subscribed to, if any; loads nothing.
void StopCardRemovalEvents();
