// A consumer that lists the components of a package: components TOOLS PACKAGE.
#include <corvane/Services/PackageComponentCatalog.hpp>
#include <corvane/Services/SystemTool.hpp>

#include <iostream>

#if __has_include("Support/FileURL.hpp") || __has_include("Stores/JobStore.hpp")
#error "the rooms of the library must not come onto the include path of others"
#endif

int main(int, char** arguments) {
    corvane::SystemTool::usePortableTools(arguments[1]);
    for (const auto& component : corvane::PackageComponentCatalog::inspect(arguments[2])) {
        std::cout << component.identifier << " " << component.version << "\n";
    }
}
