/// @file export.h
/// What the shared library exports: the classes and functions marked
/// HEXBLOCKS_API. Everything else stays hidden.
#ifndef HEXBLOCKS_EXPORT_H
#define HEXBLOCKS_EXPORT_H

#if defined(__GNUC__)
#define HEXBLOCKS_API __attribute__((visibility("default")))
#else
#define HEXBLOCKS_API
#endif

#endif // HEXBLOCKS_EXPORT_H
