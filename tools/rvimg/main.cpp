/// rvimg: reads, changes and writes pictures with the kernel.
#include "Palettes.h"
#include "Shapes.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#if defined(_WIN32)
#include <shellapi.h>
#endif

namespace rvimg {
namespace {

enum Exit : int { kDone = 0, kFailed = 1, kMisused = 2 };

#if defined(RVIMG_HAVE_EXIF)
constexpr const char* kMetadata = "\nmetadata: exif";
#else
constexpr const char* kMetadata = "";
#endif
constexpr const char* kExitCodes = "Exit code: 0 done, 1 failed, 2 wrong usage.";

/// A rule that leaves its telling to the option's own words.
template <class Rule> Rule quiet(Rule rule)
{
    rule.description("");
    return rule;
}

/// The whole command line: options land in the members.
class CommandLine {
public:
    CommandLine()
    {
        app_.allow_windows_style_options(false); // /pictures/a.bmp is a path there too
        app_.set_version_flag("--version", "rvimg " RVIMG_VERSION "\nformats: " + formatNames() + kMetadata);
        app_.require_subcommand(1);
        app_.footer("'rvimg COMMAND --help' tells more about a command.\n" + std::string(kExitCodes));
        addInfo();
        addTransform("convert",
                     "Write a picture in another format, its depth and palette unchanged where it holds them", nullptr);
        addTransform("flip", "Turn a picture upside down, every page of it", R_FlipBitmap);
        addTransform("mirror", "Mirror a picture left to right, every page of it", R_ReverseBitmap);
        addCrop();
        addFill();
        addCombine();
        addOrient();
        addDither();
        addDepth();
        addGray();
        addPalette();
        addResize();
        addThumbnail();
        addRotate();
        addDeskew();
        addChart();
    }
    CLI::App& app() { return app_; }
    /// Runs the command that was parsed.
    int run() { return run_() ? kDone : kFailed; }

private:
    CLI::App* add(const char* name, const std::string& description)
    {
        CLI::App* const command = app_.add_subcommand(name, description);
        command->footer(kExitCodes);
        return command;
    }

    void addReading(CLI::App* command, ReadOptions& options)
    {
        command->add_option("--max-size", options.maxBytes, "Refuse pages that take more bytes in memory (2GB)")
            ->transform(quiet(CLI::AsSizeValue(false)))
            ->type_name("SIZE");
    }

    void addWriting(CLI::App* command, std::string& format, WriteOptions& options, bool& noProgress)
    {
        command
            ->add_option("-f,--format", format,
                         "Format of the output, where its name does not tell (of -: the input's): " + formatNames())
            ->type_name("NAME");
        command->add_option("--quality", options.quality, "Quality of JPEG, 1 to 100 (90)")
            ->check(quiet(CLI::Range(1, 100)))
            ->type_name("N");
        command
            ->add_option("--compress", options.compression,
                         "Compression of TIFF: none, packbits, lzw, deflate, g3, g4, jpeg, zstd "
                         "(g4 for 1 bit, deflate for more)")
            ->check(quiet(CLI::IsMember({"none", "packbits", "lzw", "deflate", "g3", "g4", "jpeg", "zstd"})))
            ->type_name("NAME");
        command->add_flag("--exact", options.exact, "Refuse a format that cannot hold the picture's depth");
        command->add_flag("-q,--quiet", noProgress, "Show no progress");
    }

    void addInfo()
    {
        CLI::App* const command = add("info", "Tell what files hold");
        command->add_option("FILE", info_.files, "Pictures; - is the standard input")->required()->type_name("");
        command->add_flag("--json", info_.json, "As JSON: a list of files with their pages");
        addReading(command, info_.reading);
        command->callback([this] { run_ = [this] { return showInfo(info_); }; });
    }

    /// The operation is made when the options are known.
    CLI::App* addTransform(const char* name, const std::string& description,
                           const std::function<Operation()>& operation)
    {
        CLI::App* const command = add(name, description);
        command->add_option("IN", transform_.input, "The picture; - is the standard input")->required()->type_name("");
        command
            ->add_option("OUT", transform_.output,
                         "Where to write it; an existing file is replaced, - is the standard output")
            ->required()
            ->type_name("");
        command->add_option("--page", transform_.page, "One page only, counted from 1 (all)")
            ->check(quiet(CLI::Range(1u, 1000000u)))
            ->type_name("N");
        addWriting(command, transform_.format, transform_.writing, transform_.quiet);
        addReading(command, transform_.reading);
        command->callback([this, operation] {
            run_ = [this, operation] {
                transform(transform_, operation());
                return true;
            };
        });
        return command;
    }

    CLI::App* addTransform(const char* name, const std::string& description, R_INT (*call)(BITMAPHANDLE*))
    {
        return addTransform(name, description, [call] { return Operation(call); });
    }

    static std::string joined(const std::vector<std::string>& names)
    {
        std::string all;
        for (const std::string& name : names) all += (all.empty() ? "" : ", ") + name;
        return all;
    }

    /// An option whose words `read` makes a value of, or nothing.
    template <class T, class Read>
    static CLI::Option* addValue(CLI::App* command, const char* name, std::optional<T>& value, Read read,
                                 const char* description, const char* form)
    {
        const auto take = [=, &value](const std::string& words) {
            value = read(words);
            if (!value) throw CLI::ValidationError(name, std::string("is ") + form);
        };
        return command->add_option_function<std::string>(name, take, description)->type_name(form);
    }

    void addCrop()
    {
        CLI::App* const command = addTransform("crop", "Cut a rectangle out of a picture, and of every page of it",
                                               [this] { return cropTo(*area_); });
        addArea(command, "What to keep, from the upper left corner of the picture as it is seen")->required();
    }

    void addFill()
    {
        CLI::App* const command = addTransform("fill", "Paint a rectangle, or all of a picture, in one colour",
                                               [this] { return fillWith(*colour_, area_); });
        addValue(command, "--colour,--color", colour_, colourOf,
                 "The colour: the nearest that the picture has is taken", "RRGGBB[AA]|black|white")
            ->required();
        addArea(command, "What to paint, from the upper left corner of the picture as it is seen (all of it)");
    }

    void addCombine()
    {
        CLI::App* const command = addTransform("combine", "Combine another picture of the same kind into a picture",
                                               [this] { return combineWith(combination_, transform_.reading); });
        command->add_option("--with", combination_.file, "The other picture")->required()->type_name("FILE");
        command->add_option("--mode", combination_.mode, "How two pixels become one: " + joined(combinationModes()))
            ->required()
            ->check(quiet(CLI::IsMember(combinationModes())))
            ->type_name("NAME");
        addValue(command, "--at", combination_.at, placeOf,
                 "Where its upper left corner comes to lie in the picture as it is seen (0+0)", "X+Y");
        command->add_flag("--invert-picture", combination_.invertPicture, "Invert the picture before");
        command->add_flag("--invert-other", combination_.invertOther, "Invert the other picture before");
        command->add_flag("--invert-result", combination_.invertResult, "Invert what comes of it");
    }

    void addOrient()
    {
        const auto upright = [this] {
            if (!transform_.perspective) transform_.perspective = TOP_LEFT;
            return orientTo(*transform_.perspective);
        };
        CLI::App* const command = addTransform(
            "orient", "Store the pixels of a picture the way they are seen, or another way; it looks the same",
            upright);
        addValue(command, "--to", transform_.perspective, perspectiveNamed,
                 "Where the first row and the first column are to be seen (top-left)",
                 "top-left|top-right|bottom-right|bottom-left|left-top|right-top|right-bottom|left-bottom");
    }

    /// Whether the format holds a page is known when the operation is done.
    CLI::App* addRecolouring(const char* name, const std::string& description,
                             const std::function<Operation()>& operation)
    {
        return addTransform(name, description, [this, operation] {
            transform_.recolours = true;
            return operation();
        });
    }

    CLI::Option* addPaletteOption(CLI::App* command, const std::string& otherwise)
    {
        return command
            ->add_option("--palette", colours_.palette,
                         "Its colours: " + joined(paletteNames()) + ", or those of a file (" + otherwise + ")")
            ->type_name("NAME|FILE");
    }

    CLI::Option* addColours(CLI::App* command, unsigned& colours, const std::string& description)
    {
        return command->add_option("--colours,--colors", colours, description)
            ->check(quiet(CLI::Range(2u, kMostColours)))
            ->type_name("N");
    }

    void addDither()
    {
        CLI::App* const command =
            addRecolouring("dither", "Give a picture few colours that look like many, and a depth that suits them",
                           [this] { return ditherTo(colours_, transform_.reading); });
        command
            ->add_option("--method", colours_.method,
                         "How colours are made up: " + joined(ditheringMethods()) + " (floyd-steinberg)")
            ->check(quiet(CLI::IsMember(ditheringMethods())))
            ->type_name("NAME");
        addPaletteOption(command, "optimized; for 2 colours fixed, which is black and white");
        addColours(command, colours_.count, "So many colours at most (256, or as many as the file has)");
    }

    void addDepth()
    {
        CLI::App* const command =
            addRecolouring("depth", "Give a picture another depth: each pixel the nearest colour",
                           [this] { return depthTo(bits_, colours_.palette, transform_.reading); });
        command->add_option("--bits", bits_, "1 to 8, 12 (gray), 16 (gray, or colour of 5-5-5), 24, 32, 48 or 64")
            ->required()
            ->check(quiet(CLI::IsMember({1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 24, 32, 48, 64})))
            ->type_name("N");
        addPaletteOption(command, "what suits the picture: its own, grays, optimized");
    }

    void addGray()
    {
        CLI::App* const command = addRecolouring("gray", "Make a picture gray", [this] { return grayTo(bits_); });
        command->add_option("--bits", bits_, "8, 12 or 16 (16 for samples of more than 8 bits, else 8)")
            ->check(quiet(CLI::IsMember({8, 12, 16})))
            ->type_name("N");
    }

    void addPalette()
    {
        CLI::App* const command =
            addTransform("palette", "Show a picture's palette; with OUT and --from, give the picture another file's",
                         [] { return Operation(); });
        CLI::Option* const out = command->get_option("OUT")->required(false);
        CLI::Option* const from =
            command
                ->add_option("--from", from_,
                             "Write the picture with the palette of this file, a picture or a text as this command "
                             "prints it, to OUT: each pixel the nearest colour")
                ->needs(out)
                ->type_name("FILE");
        out->needs(from);
        command->add_flag("--keep-indices", keepIndices_, "Pixels keep their index, and so change their colour")
            ->needs(from);
        command->add_option("--swatches", showing_.swatches, "Show the palette as a picture, and not as text")
            ->excludes(from)
            ->type_name("FILE");
        addColours(command, showing_.colours, "Show the palette of so many colours at most that suits the picture")
            ->excludes(from);
        command->callback([this] { run_ = [this] { return runPalette(); }; });
    }

    bool runPalette()
    {
        if (!from_.empty()) {
            transform_.recolours = true;
            transform(transform_, paletteFrom(from_, keepIndices_, transform_.reading));
            return true;
        }
        showing_.input = transform_.input;
        showing_.format = transform_.format;
        showing_.page = transform_.page;
        showing_.reading = transform_.reading;
        showing_.writing = transform_.writing;
        showPalette(showing_);
        return true;
    }

    void addResize()
    {
        CLI::App* const command =
            addRecolouring("resize", "Give a picture another number of pixels", [this] { return resizeTo(resizing_); });
        addValue(command, "--size", resizing_.size, sizeOf,
                 "Its new width and height; one that is left out follows from the other", "WxH|Wx|xH");
        addValue(command, "--fit", resizing_.fit, sizeOf, "As large as has room in this, in its own proportions",
                 "WxH|Wx|xH");
        command->add_option("--percent", resizing_.percent, "Of its width and height")
            ->check(quiet(CLI::Range(0.01, 1e6)))
            ->type_name("N");
        command
            ->add_option("--method", resizing_.method,
                         "How new pixels come about: " + joined(resizingMethods()) +
                             " (auto: black for pages of 1 bit; else area to shrink, spline to grow)")
            ->check(quiet(CLI::IsMember(resizingMethods())))
            ->type_name("NAME");
    }

    void addThumbnail()
    {
        CLI::App* const command = addRecolouring("thumbnail", "Make a small picture; a page of 1 bit becomes gray",
                                                 [this] { return thumbnailOf(side_); });
        command->add_option("--size", side_, "Its longer side in pixels, where the picture is larger (256)")
            ->check(quiet(CLI::Range(1, 30000)))
            ->type_name("N");
    }

    void addRotate()
    {
        CLI::App* const command =
            addTransform("rotate", "Turn a picture by any angle", [this] { return rotateBy(rotation_); });
        addValue(command, "--by", rotation_.angle, angleOf, "The angle, clockwise", "DEGREES from -360 to 360")
            ->required();
        addFillColour(command, rotation_.fill);
        command->add_flag("--keep-size", rotation_.keepSize, "Cut off the corners that do not fit");
        command->add_flag("--nearest", rotation_.nearest, "Move pixels as they are, instead of weighing four");
    }

    void addDeskew()
    {
        CLI::App* const command = addTransform(
            "deskew", "Put a scanned page upright, by its lines; or a sheet that was photographed, by its corners",
            [this] { return deskewBy(deskewing_); });
        command->add_option("--most", deskewing_.most, "How far a page may be tilted, in degrees (15)")
            ->check(quiet(CLI::Range(0.1, 45.0)))
            ->type_name("N");
        const auto take = [this](const std::vector<std::string>& words) {
            deskewing_.corners = cornersOf(words);
            if (!deskewing_.corners) throw CLI::ValidationError("--corners", "is four times X,Y");
        };
        command
            ->add_option_function<std::vector<std::string>>("--corners", take,
                                                            "Take what lies between these points: the sheet's top "
                                                            "left, top right, bottom right and bottom left")
            ->expected(4)
            ->type_name("X,Y");
        addFillColour(command, deskewing_.fill);
        command->add_flag("--keep-size", deskewing_.keepSize, "Cut off the corners that do not fit");
    }

    static void addFillColour(CLI::App* command, Colour& fill)
    {
        const auto take = [&fill](const std::string& words) {
            const auto colour = colourOf(words);
            if (!colour) throw CLI::ValidationError("--fill", "is RRGGBB[AA]|black|white");
            fill = *colour;
        };
        command->add_option_function<std::string>("--fill", take, "The colour of the new corners (white)")
            ->type_name("RRGGBB[AA]|black|white");
    }

    CLI::Option* addArea(CLI::App* command, const char* description)
    {
        return addValue(command, "--area", area_, areaOf, description, "WxH+X+Y");
    }

    void addChart()
    {
        CLI::App* const command = add("chart", "Draw a picture to try things on");
        command
            ->add_option("OUT", chart_.output,
                         "Where to write it; an existing file is replaced, - is the standard output")
            ->required()
            ->type_name("");
        command->add_option("--kind", chart_.kind, "photo: a photographic test chart, 24 bits; text: a page of 1 bit")
            ->check(quiet(CLI::IsMember({"photo", "text"})))
            ->type_name("KIND");
        command
            ->add_option_function<std::string>(
                "--size", [this](const std::string& size) { parseSize(size); },
                "Size in pixels (photo 1600x1200, text 2480x3508)")
            ->type_name("WxH");
        addWriting(command, chart_.format, chart_.writing, chart_.quiet);
        command->callback([this] {
            run_ = [this] {
                drawChart(chart_);
                return true;
            };
        });
    }

    void parseSize(const std::string& size)
    {
        constexpr int kLeast = 16, kMost = 30000;
        char separator = 0;
        std::istringstream in(size);
        in >> chart_.width >> separator >> chart_.height;
        const auto fits = [](int side) { return side >= kLeast && side <= kMost; };
        if (!in || separator != 'x' || !in.eof() || !fits(chart_.width) || !fits(chart_.height))
            throw CLI::ValidationError("--size", "is WIDTHxHEIGHT, each from 16 to 30000");
    }

    CLI::App app_{"Reads, changes and writes pictures.", "rvimg"};
    InfoOptions info_;
    TransformOptions transform_;
    std::optional<RECT> area_;
    std::optional<Colour> colour_;
    Combination combination_;
    Colours colours_;
    R_INT bits_ = 0;
    PaletteOptions showing_;
    std::string from_;
    bool keepIndices_ = false;
    Resizing resizing_;
    R_INT side_ = 256;
    Rotation rotation_;
    Deskewing deskewing_;
    ChartOptions chart_;
    std::function<bool()> run_;
};

/// Done is only what has been told too.
int told(int exitCode)
{
    if (std::cout.flush()) return exitCode;
    std::cerr << "rvimg: cannot write to the standard output\n";
    return exitCode == kDone ? kFailed : exitCode;
}

int run(std::vector<std::string> arguments)
{
    CommandLine line;
    try {
        std::reverse(arguments.begin(), arguments.end()); // the parser takes them from the back
        line.app().parse(std::move(arguments));
    } catch (const CLI::ParseError& error) {
        return line.app().exit(error) == 0 ? told(kDone) : kMisused;
    }
    try {
        watchForInterruption();
        check(R_SetFileCaching(FILE_CACHING_BUFFERED)); // formats read and write small pieces
        return told(line.run());
    } catch (const UsageError& error) {
        std::cerr << "rvimg: " << error.what() << '\n';
        return kMisused;
    } catch (const std::exception& error) {
        if (!interrupted()) std::cerr << "rvimg: " << error.what() << '\n';
    }
    if (interrupted()) endInterrupted();
    return kFailed;
}

#if defined(_WIN32)
/// The command line in UTF-8: the plain one has lost every letter outside the code page.
std::vector<std::string> argumentsOf(int, char**)
{
    int count = 0;
    LPWSTR* const wide = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> arguments;
    for (int i = 1; i < count; ++i) {
        const std::u8string utf8 = std::filesystem::path(wide[i]).u8string();
        arguments.emplace_back(utf8.begin(), utf8.end());
    }
    LocalFree(wide);
    SetConsoleOutputCP(CP_UTF8);
    return arguments;
}
#else
std::vector<std::string> argumentsOf(int argc, char** argv) { return {argv + std::min(argc, 1), argv + argc}; }
#endif

} // namespace
} // namespace rvimg

int main(int argc, char** argv)
{
    try {
        return rvimg::run(rvimg::argumentsOf(argc, argv));
    } catch (...) {
        return rvimg::kFailed; // not even a message could be made
    }
}
