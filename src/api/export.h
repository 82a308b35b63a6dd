// Classes that other components may embed are exported from the PIN library.
#pragma once
#if defined(_WIN32) && defined(CVPINGUI_BUILDING)
#define CVPINGUI_CLASS __declspec(dllexport)
#elif defined(_WIN32)
#define CVPINGUI_CLASS __declspec(dllimport)
#else
#define CVPINGUI_CLASS
#endif
