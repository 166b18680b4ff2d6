#pragma once

#include <functional>
#include <string_view>

namespace tavlo::reader {

/// The reader's log. One line a message, without personal data. All operations may be called from any thread.
class Log {
 public:
  /// How much a message matters, from least to most.
  enum class Level { debug, info, warning, error };
  /// Takes one message. May be called from several threads at once; must not throw.
  using Handler = std::function<void(Level level, std::string_view message)>;

  Log() = delete;
  static void debug(std::string_view message) { write(Level::debug, message); }      ///< logs at this level
  static void info(std::string_view message) { write(Level::info, message); }        ///< logs at this level
  static void warning(std::string_view message) { write(Level::warning, message); }  ///< logs at this level
  static void error(std::string_view message) { write(Level::error, message); }      ///< logs at this level

  /// Messages below `level` are dropped; `info` by default. Gives back the previous level.
  static Level setThreshold(Level level);
  /// Routes messages to `handler` from now on, which by default are lines on standard error such as
  /// "TavloReader warning: text"; an empty handler brings that back. Gives back the handler that was in force, which
  /// may be empty for the default.
  static Handler setHandler(Handler handler);

 private:
  static void write(Level level, std::string_view message);
};

}  // namespace tavlo::reader
