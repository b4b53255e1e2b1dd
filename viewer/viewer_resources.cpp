// Registration of the viewer's shader resources, once per process, from a free function
// outside any namespace as Qt's resource macro requires.
#include "viewer/viewer_resources.hpp"

#include <QtGlobal>

void initViewerResources() {
    static const bool registered = [] {
        Q_INIT_RESOURCE(shaders);
        return true;
    }();
    (void)registered;
}
