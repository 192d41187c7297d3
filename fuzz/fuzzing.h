// What the fuzzers share. Each fuzzer is one `LLVMFuzzerTestOneInput` that gives any bytes to a part of the
// program and then asks whether what its headers promise is true.
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QString>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

/// The input's bytes, which live no longer than the call.
QByteArrayView BytesOf(const std::uint8_t *data, std::size_t size);

/// Ends the run when a promise is broken; the fuzzer keeps the input. `promise` is what should have been
/// true.
void Require(bool holds, const char *promise);

/// Any UTF-16 text, in bytes that can be read: UTF-8 in which `\uXXXX` (four hexadecimal digits) stands for
/// that unit, be it half of a pair.
QString TextFrom(QByteArrayView bytes);

/// The parts of the input, which NULs separate; exactly `count`, the last one with the rest, missing ones
/// empty.
QList<QByteArrayView> PartsOf(QByteArrayView bytes, qsizetype count);
