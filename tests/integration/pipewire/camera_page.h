// A web page that shows a camera and counts its frames.
#pragma once

namespace lumsar::test {

// `problem`, `frames`, and `level()`: how bright the frame's middle is.
inline constexpr const char* kCameraPage =
    R"(<!doctype html><video autoplay muted></video><script>
let problem = '';
const video = document.querySelector('video');
let frames = 0;
const count = () => { ++frames; video.requestVideoFrameCallback(count); };
video.requestVideoFrameCallback(count);
const start = () => navigator.mediaDevices.getUserMedia({video: true})
  .then(stream => { video.srcObject = stream; problem = ''; })
  .catch(error => { problem = String(error); setTimeout(start, 500); });
start();
function level() {
  const canvas = new OffscreenCanvas(video.videoWidth, video.videoHeight);
  const context = canvas.getContext('2d');
  context.drawImage(video, 0, 0);
  return context.getImageData(canvas.width / 2, canvas.height / 2, 1, 1).data[1];
}
</script>)";

}  // namespace lumsar::test
