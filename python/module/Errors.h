#pragma once

/// From now on exceptions of the library are those of the Python module kvo._errors.
void RegisterErrors();
