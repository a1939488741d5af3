#include "cache/DirectoryCache.h"

int main() {
    Ormek::DirectoryCache cache;
    return cache.directories().empty() ? 0 : 1;
}
