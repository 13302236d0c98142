#pragma once

namespace vistrelle::platform {

/// Does beforehand what the first JPEG picture of a movie needs from this process once: loads the libraries that scale
/// and encode, and makes the colour profile. Any thread; what fails here fails again, and is reported, where it is
/// used.
void prepareForPictures();

}  // namespace vistrelle::platform
