// serve_gocoap <port>: answers POSTs with 32 bytes, with go-coap.
package main

import (
	"bytes"
	"fmt"
	"log"
	"os"

	"github.com/plgd-dev/go-coap/v3/message"
	"github.com/plgd-dev/go-coap/v3/message/codes"
	"github.com/plgd-dev/go-coap/v3/mux"
	"github.com/plgd-dev/go-coap/v3/net"
	"github.com/plgd-dev/go-coap/v3/options"
	"github.com/plgd-dev/go-coap/v3/udp"
)

var answer = make([]byte, 32)

func post(w mux.ResponseWriter, _ *mux.Message) {
	if err := w.SetResponse(codes.Created, message.TextPlain, bytes.NewReader(answer)); err != nil {
		log.Print(err)
	}
}

func main() {
	router := mux.NewRouter()
	if err := router.Handle("/post", mux.HandlerFunc(post)); err != nil {
		log.Fatal(err)
	}
	socket, err := net.NewListenUDP("udp4", "127.0.0.1:"+os.Args[1])
	if err != nil {
		log.Fatal(err)
	}
	fmt.Println("ready")
	log.Fatal(udp.NewServer(options.WithMux(router)).Serve(socket))
}
