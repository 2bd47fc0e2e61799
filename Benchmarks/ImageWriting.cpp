// Makes a disk image of a folder, compressed with zlib, with one volume of Mac OS Extended: ImageWriting FOLDER IMAGE

#include "Support/FileManager.hpp"
#include "Tests/EndToEnd/ImageOfFolder.hpp"

#include <iostream>

using namespace corvane;

int main(int count, char** arguments) {
    try {
        if (count != 3) throw std::runtime_error("expected a folder and the image's name");
        FileManager::writeFile(arguments[2], TestSupport::imageOfFolder(arguments[1]));
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "ImageWriting: " << error.what() << "\n";
        return 1;
    }
}
