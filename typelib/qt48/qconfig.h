/* Build configuration of the Qt 4.8 libraries the wrappers are generated
   against: Windows x64, shared libraries, STL and exceptions enabled,
   no Qt 3 support.  Stands in for the header that Qt's configure writes. */
#ifndef KW_QCONFIG_H
#define KW_QCONFIG_H

#ifndef QT_EDITION
#  define QT_EDITION QT_EDITION_OPENSOURCE
#endif
#define QT_PRODUCT_LICENSEE "Open Source"
#define QT_PRODUCT_LICENSE "OpenSource"

#define QT_ARCH_WINDOWS
#define QT_POINTER_SIZE 8
#define Q_BIG_ENDIAN 4321
#define Q_LITTLE_ENDIAN 1234
#define Q_BYTE_ORDER Q_LITTLE_ENDIAN
#define QT_LARGEFILE_SUPPORT 64
#define QT_BUILD_KEY "Windows x64 release full-config"

#ifndef QT_DLL
#  define QT_DLL
#endif

/* Modules and styles not present in the Windows desktop build. */
#define QT_NO_DBUS
#define QT_NO_STYLE_GTK
#define QT_NO_STYLE_MAC
#define QT_NO_STYLE_S60
#define QT_NO_STYLE_WINDOWSCE
#define QT_NO_STYLE_WINDOWSMOBILE
#define QT_NO_OPENVG
#define QT_NO_EGL

#endif
