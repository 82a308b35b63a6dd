/*
 * cvpingui_export.h - marks the C++ classes that cv.corvana.gui.pin.dll exports.
 * The library builds with CVPINGUI_BUILDING defined; its callers import.
 */
#ifndef CVPINGUI_EXPORT_H
#define CVPINGUI_EXPORT_H

#if defined(_WIN32) && defined(CVPINGUI_BUILDING)
#define CVPINGUI_CLASS __declspec(dllexport)
#elif defined(_WIN32)
#define CVPINGUI_CLASS __declspec(dllimport)
#else
#define CVPINGUI_CLASS
#endif

#endif /* CVPINGUI_EXPORT_H */
