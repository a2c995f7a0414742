// state_gocoap <port> <rows>: a document of that many rows at /tuples, with go-coap.  It is empty until
// 200 ms after somebody has begun to observe it, and says then when it was filled: "updated_ns".
package main

import (
	"bytes"
	"fmt"
	"log"
	"os"
	"strconv"
	"sync"
	"syscall"
	"time"
	"unsafe"

	"github.com/plgd-dev/go-coap/v3/message"
	"github.com/plgd-dev/go-coap/v3/message/codes"
	"github.com/plgd-dev/go-coap/v3/mux"
	"github.com/plgd-dev/go-coap/v3/net"
	"github.com/plgd-dev/go-coap/v3/options"
	"github.com/plgd-dev/go-coap/v3/udp"
)

var (
	document []byte
	once     sync.Once
)

func monotonicNs() int64 {
	const clockMonotonic = 1
	var now syscall.Timespec
	_, _, _ = syscall.Syscall(syscall.SYS_CLOCK_GETTIME, clockMonotonic,
		uintptr(unsafe.Pointer(&now)), 0)
	return now.Nano()
}

func rows(num int) []byte {
	var text bytes.Buffer
	text.WriteString(`{"data":[`)
	for i := 0; i < num; i++ {
		if i != 0 {
			text.WriteByte(',')
		}
		fmt.Fprintf(&text, `{"key":"key%08d","val":"value of a tupl"}`, i)
	}
	text.WriteString(`]}`)
	return text.Bytes()
}

func send(conn mux.Conn, token message.Token, number uint32, body []byte) {
	response := conn.AcquireMessage(conn.Context())
	defer conn.ReleaseMessage(response)
	response.SetCode(codes.Content)
	response.SetToken(token)
	response.SetContentFormat(message.AppJSON)
	response.SetObserve(number)
	response.SetBody(bytes.NewReader(body))
	if err := conn.WriteMessage(response); err != nil {
		log.Print(err)
	}
}

// A block after the first has a request of its own.
func getBlock(w mux.ResponseWriter) {
	err := w.SetResponse(codes.Content, message.AppJSON, bytes.NewReader(document))
	if err != nil {
		log.Print(err)
	}
}

func get(w mux.ResponseWriter, request *mux.Message) {
	if _, err := request.Options().Observe(); err != nil {
		getBlock(w)
		return
	}
	conn, token := w.Conn(), append(message.Token(nil), request.Token()...)
	send(conn, token, 2, nil)
	once.Do(func() {
		go func() {
			time.Sleep(200 * time.Millisecond)
			fmt.Printf("updated_ns %d\n", monotonicNs())
			send(conn, token, 3, document)
		}()
	})
}

func main() {
	num, err := strconv.Atoi(os.Args[2])
	if err != nil {
		log.Fatal(err)
	}
	document = rows(num)
	router := mux.NewRouter()
	if err := router.Handle("/tuples", mux.HandlerFunc(get)); err != nil {
		log.Fatal(err)
	}
	socket, err := net.NewListenUDP("udp4", "127.0.0.1:"+os.Args[1])
	if err != nil {
		log.Fatal(err)
	}
	fmt.Println("ready")
	log.Fatal(udp.NewServer(options.WithMux(router)).Serve(socket))
}
