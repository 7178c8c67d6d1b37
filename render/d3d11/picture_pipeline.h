// The shaders and states that draw a picture.
#pragma once

#include "render/d3d11/field_buffer.h"
#include "render/uniforms.h"

namespace zeph::d3d11 {

class PicturePipeline {
 public:
  // Raises std::runtime_error.
  explicit PicturePipeline(const GraphicsDevice& device);

  // The picture of the frame that is in the field buffer.
  void draw(ID3D11RenderTargetView* target, const FieldBuffer& field, const Uniforms& uniforms,
            const PicturePlace& place, bool hasFlowLines) const;

 private:
  void bind(ID3D11RenderTargetView* target, const FieldBuffer& field) const;
  void unbind() const;

  const GraphicsDevice& device_;
  ComPtr<ID3D11VertexShader> fieldVertexShader_;
  ComPtr<ID3D11PixelShader> fieldPixelShader_;
  ComPtr<ID3D11VertexShader> flowVertexShader_;
  ComPtr<ID3D11PixelShader> flowPixelShader_;
  ComPtr<ID3D11Buffer> uniforms_;
  ComPtr<ID3D11RasterizerState> rasterState_;
  ComPtr<ID3D11BlendState> flowBlend_;
};

}  // namespace zeph::d3d11
