#include <authchipdriver/dbglog.h>

#include <string>

namespace {

/// Cuts "virtual Result Space::Class::method(Type, Type)" down to "Class::method".
std::string classAndMethod(const std::string& signature)
{
    const std::string name = signature.substr(0, signature.find('('));
    std::string qualified = name.substr(name.rfind(' ') + 1);
    const auto method = qualified.rfind("::");
    if (method == std::string::npos || method == 0)
        return qualified;
    const auto scope = qualified.rfind("::", method - 1);
    return scope == std::string::npos ? qualified : qualified.substr(scope + 2);
}

} // namespace

std::string dbglog_scopedFunction(const std::string& prettyFunction, const std::string& /*component*/)
{
    return classAndMethod(prettyFunction);
}
