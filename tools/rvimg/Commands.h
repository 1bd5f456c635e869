/// What the subcommands do.
#pragma once

#include "Error.h"
#include "Format.h"

#include <functional>
#include <new>
#include <optional>

namespace rvimg {

struct TransformOptions {
    std::string input;
    std::string output;
    std::string format; ///< of the output; empty: by its name's ending, the input's where it has none
    unsigned page = 0;  ///< 0: all
    bool quiet = false;
    bool recolours = false;           ///< the operation may leave pages of another depth
    std::optional<R_INT> perspective; ///< the one that the operation gives to the pages; nothing: each keeps its own
    ReadOptions reading;
    WriteOptions writing;
};

/// What is done to a page: answers a status of the kernel, or throws.
using Operation = std::function<R_INT(BITMAPHANDLE*)>;

/// Reads the pages of the input, works on each (null: leaves it as it is) and writes them.
void transform(const TransformOptions& options, const Operation& operation);

/// Reads a page of a file, counted from 1.
Image readPicture(const std::string& file, const ReadOptions& options, unsigned page = 1);

struct InfoOptions {
    std::vector<std::string> files;
    bool json = false;
    ReadOptions reading;
};

/// Tells what files hold. False when some could not be read; the others are told all the same.
bool showInfo(const InfoOptions& options);

struct ChartOptions {
    std::string output;
    std::string format;
    std::string kind = "photo"; ///< or "text"
    int width = 0;              ///< 0: the kind's own
    int height = 0;
    bool quiet = false;
    WriteOptions writing;
};

/// Draws a picture to try things on.
void drawChart(const ChartOptions& options);

/// A failure that belongs to a file: "name: reason" on standard error.
void report(const std::string& file, const std::string& reason);
/// A failure of work on a file, with its name in front.
class FileError : public Error {
public:
    FileError(const std::string& file, const std::string& reason) : Error(file + ": " + reason) {}
};

/// Runs work on a file; a failure gets the file's name.
template <class Work> decltype(auto) on(const std::string& file, const Work& work)
{
    try {
        return work();
    } catch (const Interrupted&) {
        throw;
    } catch (const UsageError&) {
        throw;
    } catch (const FileError&) {
        throw;
    } catch (const std::bad_alloc&) {
        throw FileError(file, "not enough memory");
    } catch (const std::exception& error) {
        throw FileError(file, error.what());
    }
}

/// A path from the UTF-8 text of an argument.
std::filesystem::path pathOf(const std::string& name);
/// The format a file is to have: by name, else by the ending of the file's name. Throws UsageError.
const Format& outputFormat(const std::string& file, const std::string& format);

} // namespace rvimg
