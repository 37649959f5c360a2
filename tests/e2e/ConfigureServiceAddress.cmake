# Writes the application's ServiceAddress.h with the authority of the service the e2e tests run.
# Run as: cmake -DCA=ca.pem -DTEMPLATE=ServiceAddress.h.in -DOUTPUT=ServiceAddress.h -P ConfigureServiceAddress.cmake
file(READ "${CA}" service_ca_pem)
configure_file("${TEMPLATE}" "${OUTPUT}" @ONLY)
