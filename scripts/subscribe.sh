#!/usr/bin/env bash
# Subscribes a CIM-XML listener to indications on a running tovra-cimd: makes
# a filter (the WQL query), a listener destination (the listener's URL) and
# the subscription joining them in root/interop, with three CreateInstance
# requests sent with curl. The names of the filter and the destination are
# NAME; delete them with scripts/subscribe.sh --delete NAME.
#
#   scripts/subscribe.sh NAME 'SELECT * FROM CIM_AlertIndication' http://127.0.0.1:5990
#
# TOVRA_SERVER (default http://127.0.0.1:5988) and TOVRA_USER
# (default admin:secret, a user with level 5) say where and as whom.
set -euo pipefail

server=${TOVRA_SERVER:-http://127.0.0.1:5988}
user=${TOVRA_USER:-admin:secret}
usage() { echo "usage: $0 NAME QUERY LISTENER-URL | $0 --delete NAME" >&2; exit 2; }

xml() { sed -e 's/&/\&amp;/g' -e 's/</\&lt;/g' -e 's/>/\&gt;/g' -e 's/"/\&quot;/g' <<<"$1"; }
ns='<LOCALNAMESPACEPATH><NAMESPACE NAME="root"/><NAMESPACE NAME="interop"/></LOCALNAMESPACEPATH>'

# post METHOD PARAMS: one intrinsic call in root/interop; fails on a CIM error.
post() {
  local body reply
  body="<?xml version=\"1.0\" encoding=\"utf-8\" ?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"><MESSAGE ID=\"1\" PROTOCOLVERSION=\"1.0\"><SIMPLEREQ><IMETHODCALL NAME=\"$1\">$ns$2</IMETHODCALL></SIMPLEREQ></MESSAGE></CIM>"
  reply=$(curl -sS -u "$user" -H 'Content-Type: application/xml; charset="utf-8"' -H 'CIMOperation: MethodCall' \
    -H "CIMMethod: $1" -H 'CIMObject: root%2Finterop' --data-binary "$body" "$server/cimom")
  if grep -q '<ERROR' <<<"$reply"; then
    echo "$1: $(grep -o '<ERROR[^>]*>' <<<"$reply")" >&2
    return 1
  fi
}

# name CLASS NAME: the INSTANCENAME of a filter or destination (SystemName
# is the server's, so the name is found whatever host the server is on).
name() {
  echo "<INSTANCENAME CLASSNAME=\"$1\"><KEYBINDING NAME=\"CreationClassName\"><KEYVALUE>$1</KEYVALUE></KEYBINDING><KEYBINDING NAME=\"Name\"><KEYVALUE>$(xml "$2")</KEYVALUE></KEYBINDING><KEYBINDING NAME=\"SystemCreationClassName\"><KEYVALUE>CIM_ComputerSystem</KEYVALUE></KEYBINDING><KEYBINDING NAME=\"SystemName\"><KEYVALUE>tovra</KEYVALUE></KEYBINDING></INSTANCENAME>"
}
ref() { echo "<PROPERTY.REFERENCE NAME=\"$1\"><VALUE.REFERENCE><LOCALINSTANCEPATH>$ns$(name "$2" "$3")</LOCALINSTANCEPATH></VALUE.REFERENCE></PROPERTY.REFERENCE>"; }
prop() { echo "<PROPERTY NAME=\"$1\" TYPE=\"string\"><VALUE>$(xml "$2")</VALUE></PROPERTY>"; }
create() { post CreateInstance "<IPARAMVALUE NAME=\"NewInstance\"><INSTANCE CLASSNAME=\"$1\">$2</INSTANCE></IPARAMVALUE>"; }
delete() { post DeleteInstance "<IPARAMVALUE NAME=\"InstanceName\">$1</IPARAMVALUE>"; }
subscription() {
  echo "<INSTANCENAME CLASSNAME=\"CIM_IndicationSubscription\"><KEYBINDING NAME=\"Filter\"><VALUE.REFERENCE><LOCALINSTANCEPATH>$ns$(name CIM_IndicationFilter "$1")</LOCALINSTANCEPATH></VALUE.REFERENCE></KEYBINDING><KEYBINDING NAME=\"Handler\"><VALUE.REFERENCE><LOCALINSTANCEPATH>$ns$(name CIM_ListenerDestinationCIMXML "$1")</LOCALINSTANCEPATH></VALUE.REFERENCE></KEYBINDING></INSTANCENAME>"
}

if [ "${1:-}" = --delete ]; then
  [ $# -eq 2 ] || usage
  delete "$(subscription "$2")"
  delete "$(name CIM_IndicationFilter "$2")"
  delete "$(name CIM_ListenerDestinationCIMXML "$2")"
  echo "deleted $2"
  exit 0
fi
[ $# -eq 3 ] || usage
keys="$(prop SystemName tovra)$(prop Name "$1")"
create CIM_IndicationFilter "$keys$(prop Query "$2")$(prop QueryLanguage WQL)"
create CIM_ListenerDestinationCIMXML "$keys$(prop Destination "$3")"
create CIM_IndicationSubscription "$(ref Filter CIM_IndicationFilter "$1")$(ref Handler CIM_ListenerDestinationCIMXML "$1")"
echo "subscribed $3 to: $2"
