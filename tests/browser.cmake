# The web client in headless Chromium against the whole stack (lighttpd,
# entry.cgi, the modules, orvel-syncd): tests/browser/run.sh. It needs the
# packages chromium, chromium-driver and python3-selenium (install-deps.sh)
# and fails when they are missing.
add_test(NAME browser.web_client
         COMMAND ${CMAKE_SOURCE_DIR}/tests/browser/run.sh ${CMAKE_BINARY_DIR})
set_tests_properties(browser.web_client PROPERTIES TIMEOUT 900 LABELS browser)
