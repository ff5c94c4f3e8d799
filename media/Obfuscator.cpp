#include "include2/Obfuscator"

#include <span>

#include "foundation/Fail.h"

namespace Quillmark {

namespace {

constexpr Site here(unsigned int line) {
    return {"Obfuscator", line};
}

/// Each call refuses a null handle in its own name, before anything else is looked at.
void demandValue(MediaOut const& handle, Site site) {
    if (handle.isNull()) fail<MediaException>(NullHandle, site);
}

}  // namespace

LightweightObfuscatorImpl::LightweightObfuscatorImpl(uint_t seed)
    : m_lowKey(seed & 0xffff), m_highKey(seed >> 16) {}
LightweightObfuscatorImpl::~LightweightObfuscatorImpl() = default;

void LightweightObfuscatorImpl::write(unsigned char const* data, uint_t n) {
    if (!data || !m_output) return;
    MediaOut output(*m_output);  // which stays when a byte makes somebody attach another
    auto const key = static_cast<unsigned char>((m_lowKey ^ m_highKey) & 0xff);
    for (unsigned char const byte : std::span(data, n)) output << static_cast<char>(byte ^ key);
}

void LightweightObfuscatorImpl::end() {}

void LightweightObfuscatorImpl::characterSet(std::string const& name) {
    if (m_output) m_output->characterSet(name);
}

void LightweightObfuscatorImpl::attachOutput(MediaOut& output) {
    m_output = output.isNull() ? nullptr : std::make_unique<MediaOut>(output);
}

void LightweightObfuscatorImpl::detachOutput() {
    m_output.reset();
}

LightweightObfuscator::LightweightObfuscator(uint_t seed) {
    adopt(new LightweightObfuscatorImpl(seed));
}

LightweightObfuscator::LightweightObfuscator(MediaOut& output, uint_t seed) : LightweightObfuscator(seed) {
    attachOutput(output);
}

void LightweightObfuscator::attachOutput(MediaOut& output) {
    demandValue(*this, here(95));
    // Every byte would go round for ever.
    if (output == *this) fail<MediaException>(BadArgument, here(0));
    as<LightweightObfuscatorImpl>().attachOutput(output);
}

void LightweightObfuscator::detachOutput() {
    demandValue(*this, here(108));
    as<LightweightObfuscatorImpl>().detachOutput();
}

void LightweightObfuscator::write(Buffer const& buffer) {
    demandValue(*this, here(121));
    as<LightweightObfuscatorImpl>().write(buffer);
}

void LightweightObfuscator::write(unsigned char const* data, uint_t n) {
    demandValue(*this, here(130));
    as<LightweightObfuscatorImpl>().write(data, n);
}

void LightweightObfuscator::end() {
    demandValue(*this, here(139));
    as<LightweightObfuscatorImpl>().end();
}

}  // namespace Quillmark
