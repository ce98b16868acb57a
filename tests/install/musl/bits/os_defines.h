// Takes the place of the standard library's header for glibc: with musl there is nothing to say of the
// system.
#pragma once
