# Installs playwright-core into the build tree (once), for the browser tests.
# Run as: cmake -DDIR=<folder> -DVERSION=<version> -P InstallPlaywright.cmake
if(EXISTS "${DIR}/node_modules/playwright-core/package.json")
    file(READ "${DIR}/node_modules/playwright-core/package.json" manifest)
    string(JSON installed GET "${manifest}" version)
    if(installed STREQUAL VERSION)
        return()
    endif()
endif()
file(MAKE_DIRECTORY "${DIR}")
set(ENV{npm_config_cache} "${DIR}/npm-cache")
set(ENV{npm_config_update_notifier} "false")
execute_process(COMMAND npm install --prefix "${DIR}" --no-audit --no-fund --no-save --loglevel=error
                        "playwright-core@${VERSION}"
                RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "npm could not install playwright-core ${VERSION}")
endif()
