#pragma once
#include <QtGlobal>

#if defined(ARRAYLENS_WIRE_LIBRARY)
#define ARRAYLENS_WIRE_EXPORT Q_DECL_EXPORT
#else
#define ARRAYLENS_WIRE_EXPORT Q_DECL_IMPORT
#endif
