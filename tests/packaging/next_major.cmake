find_package(vornycnr 2.0 REQUIRED)
