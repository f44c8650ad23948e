#!/usr/bin/env bash
# make_test_pki.sh DIR [EXTRA_DNS_NAME...]
#
# Makes a throw-away certificate authority and a server certificate for the
# test repository in DIR (created if needed):
#   ca.crt, ca.key          the test CA (trust ca.crt, keep ca.key private)
#   <hash>.0 -> ca.crt      the CA under its OpenSSL subject hash, for a
#                           directory that stands in for /etc/ssl/certs
#   server.crt, server.key  for nexus.cv084.test, localhost and 127.0.0.1
#                           (plus any extra DNS names given)
# Keys are made fresh each time and never belong in the repository.
set -euo pipefail

if [[ $# -lt 1 ]]; then
    echo "usage: $0 DIR [EXTRA_DNS_NAME...]" >&2
    exit 2
fi
dir=$1
shift
mkdir -p "$dir"
cd "$dir"
umask 077

san="DNS:nexus.cv084.test,DNS:localhost,IP:127.0.0.1"
for name in "$@"; do
    san+=",DNS:$name"
done

openssl ecparam -name prime256v1 -genkey -noout -out ca.key 2>/dev/null
openssl req -x509 -new -key ca.key -sha256 -days 825 -subj "/CN=CV084 Test Repository CA" \
    -addext "basicConstraints=critical,CA:TRUE" \
    -addext "keyUsage=critical,keyCertSign,cRLSign" \
    -out ca.crt 2>/dev/null

openssl ecparam -name prime256v1 -genkey -noout -out server.key 2>/dev/null
openssl req -new -key server.key -subj "/CN=nexus.cv084.test" -out server.csr 2>/dev/null
cat > server.ext <<EXT
basicConstraints=critical,CA:FALSE
keyUsage=critical,digitalSignature,keyEncipherment
extendedKeyUsage=serverAuth
subjectAltName=$san
EXT
openssl x509 -req -in server.csr -CA ca.crt -CAkey ca.key -CAcreateserial -sha256 -days 825 \
    -extfile server.ext -out server.crt 2>/dev/null
rm -f server.csr server.ext ca.srl

chmod 644 ca.crt server.crt
ln -sf ca.crt "$(openssl x509 -hash -noout -in ca.crt).0"
