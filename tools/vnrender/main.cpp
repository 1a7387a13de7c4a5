// vnrender: the batch renderer. It starts the engine, evaluates a graph and writes image files.

#include "EngineSession.h"

#include "ExBase.h"

#include <CLI/CLI.hpp>

#include <filesystem>
#include <iostream>

int main(int argc, char** argv) {
    CLI::App app{"vnrender: evaluates a processing graph and writes its images"};
    std::string outDir = "out";
    bool quiet = false;
    app.add_option("-o,--out", outDir, "Folder the images are written to");
    app.add_flag("-q,--quiet", quiet, "Print only errors");
    CLI11_PARSE(app, argc, argv);

    try {
        std::filesystem::create_directories(outDir);
        VnRender::EngineSession session(std::vector<std::string>(argv + 1, argv + argc));
        if (!quiet) {
            session.printBuildInfo(std::cout);
            std::cout << "Packages started: ";
            char const* sep = "";
            for (auto const& name : session.getStartOrder()) {
                std::cout << sep << name;
                sep = ", ";
            }
            std::cout << "\n";
        }
        return 0;
    } catch (Vn::ExBase const& e) {
        std::cerr << "vnrender: error: " << e.getDetailedReason() << "\n";
    } catch (std::exception const& e) {
        std::cerr << "vnrender: error: " << e.what() << "\n";
    }
    return 1;
}
