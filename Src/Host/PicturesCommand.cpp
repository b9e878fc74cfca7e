/// `transitions pictures`: writes the two built-in pictures.

#include "PictureFile.h"
#include "Pictures.h"
#include "Program.h"

#include <memory>

namespace host {

namespace {

struct PicturesOptions {
    std::string day;
    std::string dusk;
    std::string size = "1280x720";
};

} // namespace

void AddPictures(CLI::App &app, Program &) {
    const auto options = std::make_shared<PicturesOptions>();
    CLI::App *command =
        app.add_subcommand("pictures", "Write two built-in pictures to try transitions with");
    command
        ->add_option("DAY", options->day,
                     "A lake on a bright day, as its ending says: .png, .jpg, .webp, .tif or .bmp")
        ->required();
    command->add_option("DUSK", options->dusk, "A city at dusk")->required();
    command->add_option("--size", options->size, "Their size")
        ->type_name("WxH")
        ->capture_default_str();
    command->callback([options] {
        const Size size = ParseSize(options->size);
        for (const std::string &name : {options->day, options->dusk})
            CheckPictureName(name);
        WritePicture(*ToFrame(DayPicture(size.width, size.height)), options->day);
        WritePicture(*ToFrame(DuskPicture(size.width, size.height)), options->dusk);
    });
}

} // namespace host
