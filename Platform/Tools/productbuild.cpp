// Makes product packages of component packages.

#include "Platform/Tools/BuildingTool.hpp"
#include "Platform/Tools/OptionList.hpp"
#include "Platform/Tools/ProductBuilding.hpp"
#include "Platform/Tools/Tool.hpp"

namespace corvane::Tools {
namespace {

constexpr const char* usage =
    "Usage: productbuild --distribution FILE [--package-path FOLDER] [--resources FOLDER] PRODUCT";

} // namespace

int productbuild(const Arguments& arguments) {
    const OptionList options(arguments, {"--distribution", "--package-path", "--resources"}, {}, usage);
    const auto distribution = options.value("--distribution");
    if (options.operands().size() != 1 || !distribution) throw UsageError(usage);
    const FileURL product = options.operands().front();
    return runBuilding("productbuild", [&](const std::stop_token& stop) {
        requireWritable(product);
        buildProduct(*distribution, options.value("--package-path").value_or("."), options.value("--resources"),
                     product, stop);
        print("productbuild: Wrote product to " + product.string() + "\n");
    });
}

} // namespace corvane::Tools
