# SPDX-License-Identifier: ISC
# cmake -DFROM=FOLDER -DTO=FOLDER -P: makes TO what FROM is, but for what the build adds to it, the
# responses, the fonts and the stamp of the theme.
file(GLOB_RECURSE old RELATIVE ${TO} ${TO}/*)
foreach(file IN LISTS old)
  if(NOT EXISTS "${FROM}/${file}" AND NOT file MATCHES "^responses/|^skins/fonts/|[.]checked$")
    file(REMOVE "${TO}/${file}")
  endif()
endforeach()
file(COPY ${FROM}/ DESTINATION ${TO})
