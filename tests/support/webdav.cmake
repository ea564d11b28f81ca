# Apache with mod_dav and Basic auth on 127.0.0.1 for the cloud tests.
quorvel_add_service(webdav webdav.sh)
