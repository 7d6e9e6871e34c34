#pragma once
#include <QtGlobal>

#if defined(ARRAYLENS_HOST_LIBRARY)
#define ARRAYLENS_HOST_EXPORT Q_DECL_EXPORT
#else
#define ARRAYLENS_HOST_EXPORT Q_DECL_IMPORT
#endif
