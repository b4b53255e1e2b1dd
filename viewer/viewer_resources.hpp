// Registration of the viewer's shader resources, which live in a static library and so
// must be pulled in explicitly before first use.
#pragma once

// Safe to call any number of times.
void initViewerResources();
