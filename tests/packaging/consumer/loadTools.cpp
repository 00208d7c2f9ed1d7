// Loads the stored tools named on the command line; each must be a trained one.
#include "clss/clastool/clastool/tkClassifierTool.h"

#include "foundation/tkArchive.h"

#include <exception>
#include <fstream>
#include <iostream>

int main(int argc, char** argv)
{
    if (argc < 2)
    {
        std::cerr << "no stored tools were given\n";
        return 1;
    }
    for (int i = 1; i < argc; ++i)
    {
        try
        {
            std::ifstream file(argv[i], std::ios::binary);
            tkArchive archive(file);
            tkClassifierTool tool;
            archive || tool;
            if (!tool.isTrained())
            {
                std::cerr << argv[i] << ": not trained\n";
                return 1;
            }
            std::cout << argv[i] << ": trained\n";
        }
        catch (const std::exception& error)
        {
            std::cerr << argv[i] << ": " << error.what() << '\n';
            return 1;
        }
    }
}
