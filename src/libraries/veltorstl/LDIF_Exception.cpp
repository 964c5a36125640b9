// The exception record and its text forms.
#include "LDIF_Exception.h"

#include "veltor/cfg.h"

#include <cstring>
#include <ostream>

std::atomic<bool> LDIF_Exception::showSource{false};
std::atomic<bool> LDIF_Exception::showStack{true};

namespace {

LDIF_Exception* copyOf(const LDIF_Exception* exception)
{
    return exception == nullptr ? nullptr : new LDIF_Exception(*exception);
}

} // namespace

LDIF_Exception::Nested::Nested(LDIF_Exception* owned) noexcept : exception_(owned) {}

LDIF_Exception::Nested::Nested(const Nested& other) : exception_(copyOf(other.exception_)) {}

LDIF_Exception::Nested::Nested(Nested&& other) noexcept : exception_(std::exchange(other.exception_, nullptr)) {}

LDIF_Exception::Nested& LDIF_Exception::Nested::operator=(const Nested& other)
{
    return *this = Nested(other);
}

LDIF_Exception::Nested& LDIF_Exception::Nested::operator=(Nested&& other) noexcept
{
    std::swap(exception_, other.exception_);
    return *this;
}

LDIF_Exception::Nested::~Nested()
{
    delete exception_;
}

LDIF_Exception::LDIF_Exception(const char* sourceFile, int sourceLine, int ldapCode, int extCode, const char* message)
    : srcFile(sourceFile == nullptr ? "" : sourceFile), srcLine(sourceLine), msg(message == nullptr ? "" : message),
      ldapErr(ldapCode), extErr(extCode)
{
}

LDIF_Exception::LDIF_Exception(const char* sourceFile, int sourceLine, const LDIF_Exception& inner)
    : srcFile(sourceFile == nullptr ? "" : sourceFile), srcLine(sourceLine), msg(inner.msg), ldapErr(inner.ldapErr),
      extErr(inner.extErr), sysErrno(inner.sysErrno), errnoHidden(inner.errnoHidden), configFile(inner.configFile),
      configLine(inner.configLine), entryDn(inner.entryDn), attribute(inner.attribute), value(inner.value),
      attrType(inner.attrType), nested(new LDIF_Exception(inner)), systemFailure_(inner.systemFailure_)
{
}

LDIF_Exception::~LDIF_Exception() = default;

std::string LDIF_Exception::fileStr() const
{
    if (srcFile.empty()) {
        return "file?";
    }
    const auto separator = srcFile.find_last_of("/\\");
    const auto begin = separator == std::string::npos ? 0 : separator + 1;
    return srcFile.substr(begin) + ":" + std::to_string(srcLine);
}

std::string LDIF_Exception::errStr() const
{
    return std::to_string(sysErrno);
}

std::string LDIF_Exception::msgStr() const
{
    return msg;
}

std::string LDIF_Exception::str() const
{
    std::string text;
    if (showSource) {
        text += "[" + fileStr() + "] ";
    }
    if (sysErrno != 0) {
        text += errStr() + ": ";
    }
    if (!msg.empty()) {
        text += msgStr() + "\n";
    }
    if (showStack && nested != nullptr) {
        text += nested->str();
    }
    return text;
}

std::string LDIF_Exception::dump() const
{
    std::string text = "[" + srcFile + ":" + std::to_string(srcLine);
    // Without a message the bracket stays open on purpose: readers of these reports rely on the exact form.
    if (!msg.empty()) {
        text += "]\nmsg     " + msg;
    }
    if (sysErrno != 0 && errnoHidden == 0) {
        text += "\nerrno " + std::to_string(sysErrno) + ": " + std::strerror(sysErrno);
    }
    text += "\nldapErr " + std::to_string(ldapErr) + ": " + cfg_err2string(ldapErr);
    if (extErr > 0 && extErr != ldapErr) {
        text += "\nextErr " + std::to_string(extErr) + ": " + cfg_err2string(extErr);
    }
    if (!configFile.empty()) {
        text += configLine != 0 ? "\nLine " + std::to_string(configLine) + " of " + configFile
                                : "\nConfig file: " + configFile;
    }
    if (!entryDn.empty()) {
        text += "\nentry dn: " + entryDn;
    }
    if (!attribute.empty()) {
        text += "\nattribute: " + attribute;
    }
    if (!value.empty()) {
        text += "\nvalue: " + value;
    }
    if (attrType != nullptr) {
        text += "\nConstraints for ";
        text += attrType->name != nullptr ? attrType->name : "UNKNOWN ATTRIBUTE TYPE";
        text += attrType->singleValued ? "\n  Single-valued" : "\n  Multi-valued";
        if (attrType->min != 0 || attrType->max != 0) {
            text += "\n  min: " + std::to_string(attrType->min) + "\n  max: " + std::to_string(attrType->max);
        }
        // The digits of the mask are left out on purpose: the line has always ended after "0x".
        if (attrType->bitmask != 0) {
            text += "\n  bit mask: 0x";
        }
        if (attrType->enumValues != nullptr) {
            text += "\n  enumeration: { ";
            for (const char* const* allowed = attrType->enumValues; *allowed != nullptr; ++allowed) {
                text += allowed == attrType->enumValues ? "" : ", ";
                text += *allowed;
            }
            text += " }";
        }
    }
    text += "\n";
    if (showStack && nested != nullptr) {
        text += "\n" + nested->dump();
    }
    return text;
}

std::ostream& operator<<(std::ostream& stream, const LDIF_Exception& exception)
{
    return stream << exception.str();
}
